#include "MessageIO.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace qklmsg {

namespace {

using QKL::QKLMessage;
using QKL::QKLMsgFactory;

// kindOf reads the first four bytes unchecked, so shorter input is never asked.
constexpr std::size_t KIND_PREFIX_BYTES = 4;

std::string offsetText(std::size_t offset) { return "offset " + std::to_string(offset); }

// How the message that starts at some offset of the input is framed.
struct Frame {
    std::size_t taken;  // input bytes of the message (XML text: with its zero byte, if it has one)
    int length;         // bytes handed to the library: XML text ended by the end of input gets
                        // the zero byte that std::string keeps behind its bytes
    bool binary;        // a binary document, else XML text
    bool truncated;     // a binary document cut short by the end of input
};

// The bytes begin as a binary document does: the whole magic, or as much of it as there is.
bool startsLikeBinary(const char* bytes, std::size_t length) {
    return std::memcmp(bytes, &QKL::binary::MAGIC, std::min(length, sizeof QKL::binary::MAGIC)) == 0;
}

// The message at `at` (before the end of input), framed by the library; what
// it leaves open is XML text ended by the end of input, or a binary document cut short.
Frame frameAt(const std::string& bytes, std::size_t at) {
    const char* start = bytes.data() + at;
    const std::size_t left = bytes.size() - at;
    const bool binary = startsLikeBinary(start, left);
    const int framed = QKLMessage::isComplete(start, int(left));
    if (framed > 0) return {std::size_t(framed), framed, binary, false};
    return {left, int(left) + 1, binary, binary};
}

std::string truncatedText(const char* bytes, std::size_t at, std::size_t left) {
    return std::string("truncated binary document") + (at > 0 ? " (the last message)" : "") + ": " +
           faultText(documentFault(bytes, left));
}

// The message framed at `at`, owned by the caller; null after reporting.
QKLMessage* messageAt(const Input& input, std::size_t at, const Frame& frame, const std::string& where) {
    const char* bytes = input.bytes.data() + at;
    if (frame.truncated) {
        refuse(where, truncatedText(bytes, at, frame.taken));
        return nullptr;
    }
    QKLMessage* message = QKLMsgFactory::createNew(bytes, frame.length);
    if (message != nullptr) return message;
    if (frame.binary) {
        refuse(where, "malformed binary document: " + faultText(documentFault(bytes, frame.taken)));
        return nullptr;
    }
    const QKL::TextError fault = textFault(bytes, frame.length);
    if (!fault) {
        refuse(where, "not a message: the XML reader refused the text");
        return nullptr;
    }
    // file:line:column over the whole input, for a text that follows other messages too.
    const std::size_t offset = at + fault.offset;
    const std::size_t lineStart = input.bytes.rfind('\n', offset == 0 ? 0 : offset - 1);
    const bool firstLine = offset == 0 || lineStart == std::string::npos;
    const std::size_t line = 1 + std::size_t(std::count(input.bytes.begin(), input.bytes.begin() + offset, '\n'));
    const std::size_t column = firstLine ? offset + 1 : offset - lineStart;
    refuse(input.name + ":" + std::to_string(line) + ":" + std::to_string(column), fault.text());
    return nullptr;
}

// The input's name for the first message, with the offset for the others.
std::string messageWhere(const Input& input, std::size_t at) {
    return at == 0 ? input.name : input.name + " at " + offsetText(at);
}

bool renderText(const QKLMessage& message, const std::string& where, std::string& text) {
    char* rendered = message.toText(nullptr, std::string(), QKL::QKLMessageIterator::TEXT_FLAGS);
    if (rendered == nullptr) {
        refuse(where, "the message cannot be written as XML text");
        return false;
    }
    text += rendered;
    std::free(rendered);
    return true;
}

bool renderBinary(const QKLMessage& message, const std::string& where, std::string& bytes) {
    char* buffer = nullptr;
    int length = 0;
    if (message.serialize(&buffer, &length, nullptr, QKL::QKLBinaryInternals::DEFAULT_MESSAGE_VERSION) != 0) {
        std::free(buffer);
        refuse(where, "the message cannot be serialized");
        return false;
    }
    const std::string written(buffer, std::size_t(length));
    std::free(buffer);
    if (!isBinaryDocument(written))
        note(where, "message version below 4.0.0: serialized as XML text, as for such peers");
    bytes += written;
    return true;
}

}  // namespace

QKL::DocumentError documentFault(const char* bytes, std::size_t length) {
    QKL::auto_destroy<QKL::QKLBinary> message(new QKL::QKLBinary());
    message->init(bytes, int(std::min<std::size_t>(length, INT_MAX)));
    return message->lastDocumentError();
}

QKL::TextError textFault(const char* bytes, int length) {
    QKL::auto_destroy<QKL::QKLBinary> message(new QKL::QKLBinary());
    message->init(bytes, length);
    return message->lastTextError();
}

std::string faultText(const QKL::DocumentError& fault) {
    // Only a failure outside the bytes (no memory) leaves no fault.
    return fault ? offsetText(fault.offset) + ": " + fault.reason : "refused, with no fault in its bytes";
}

bool isBinaryDocument(const std::string& bytes) {
    return bytes.size() >= KIND_PREFIX_BYTES && QKLMsgFactory::kindOf(bytes.data()) != QKLMsgFactory::UnknownKind;
}

QKLMessage* readMessage(const Input& input) {
    if (input.bytes.empty()) {
        refuse(input.name, "empty input");
        return nullptr;
    }
    const Frame frame = frameAt(input.bytes, 0);
    if (frame.truncated || frame.taken == input.bytes.size()) return messageAt(input, 0, frame, input.name);
    if (frame.binary)
        refuse(input.name, "bytes after the end of the binary document at " + offsetText(frame.taken));
    else
        refuse(input.name, "a zero byte at " + offsetText(frame.taken - 1) + " in XML text");
    return nullptr;
}

QKLMessage* readMessage(const std::string& path, Input& input) {
    return readInput(path, input) ? readMessage(input) : nullptr;
}

int writeEachMessage(const std::string& path, const std::string& output, MessageWriter write,
                     RefusedWriter refused) {
    Input input;
    if (!readInput(path, input)) return EXIT_REFUSED;
    if (input.bytes.empty()) return refuse(input.name, "empty input");
    std::string out;
    for (std::size_t at = 0; at < input.bytes.size();) {
        const Frame frame = frameAt(input.bytes, at);
        const Received received{messageWhere(input, at), frame.binary};
        // The complete messages before a truncated one are written first.
        if (frame.truncated && at > 0 && !writeOutput(output, out)) return EXIT_REFUSED;
        QKL::auto_destroy<QKLMessage> message(messageAt(input, at, frame, received.where));
        if (!message && refused != nullptr && frame.binary && output.empty()) {
            std::string shown = frame.truncated && at > 0 ? std::string() : out;  // else written already
            refused(input.bytes.data() + at, frame.taken, shown);
            writeOutput(output, shown);
        }
        if (!message || !write(*message, received, out)) return EXIT_REFUSED;
        at += frame.taken;
    }
    return writeOutput(output, out) ? EXIT_DONE : EXIT_REFUSED;
}

bool renderMessage(const QKLMessage& message, MessageForm form, const std::string& where, std::string& out) {
    if (form == MessageForm::BinaryDocument) return renderBinary(message, where, out);
    if (!renderText(message, where, out)) return false;
    // For the terminal; the reader takes it as trailing blank space.
    out += '\n';
    return true;
}

QKLMessage* newMessage(const std::string& where) {
    QKLMessage* message = QKLMsgFactory::createNew();
    if (message == nullptr) refuse(where, "no message protocol is available");
    return message;
}

}  // namespace qklmsg
