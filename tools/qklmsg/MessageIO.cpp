#include "MessageIO.h"

#include <cstdlib>

namespace qklmsg {

namespace {

using QKL::QKLMessage;
using QKL::QKLMsgFactory;

// kindOf reads the first four bytes unchecked, so shorter input is never asked.
constexpr std::size_t KIND_PREFIX_BYTES = 4;

std::string offsetText(std::size_t offset) { return "offset " + std::to_string(offset); }

QKLMessage* messageFromBinary(const Input& input) {
    const int length = int(input.bytes.size());
    const int framed = QKLMessage::isComplete(input.bytes.data(), length);
    if (framed <= 0) {
        refuse(input.name, "truncated binary document: its header and root need more than " +
                               std::to_string(length) + " bytes");
        return nullptr;
    }
    if (framed < length) {
        refuse(input.name, "bytes after the end of the binary document at " + offsetText(std::size_t(framed)));
        return nullptr;
    }
    QKLMessage* message = QKLMsgFactory::createNew(input.bytes.data(), length);
    if (message == nullptr)
        refuse(input.name, "malformed binary document: a node or the map area does not fit where it claims");
    return message;
}

// XML text is framed up to and with its zero byte, so the terminating zero
// that std::string keeps behind its bytes is passed along.
QKLMessage* messageFromText(const Input& input) {
    const int length = int(input.bytes.size()) + 1;
    const int framed = QKLMessage::isComplete(input.bytes.c_str(), length);
    if (framed <= 0) {
        refuse(input.name, "the start of a binary document, cut short at " + offsetText(input.bytes.size()));
        return nullptr;
    }
    if (framed < length) {
        refuse(input.name, "a zero byte at " + offsetText(std::size_t(framed) - 1) + " in XML text");
        return nullptr;
    }
    QKLMessage* message = QKLMsgFactory::createNew(input.bytes.c_str(), length);
    if (message == nullptr) refuse(input.name, "not a message: the XML reader refused the text");
    return message;
}

bool renderText(const QKLMessage& message, const std::string& where, std::string& text) {
    char* rendered = message.toText(nullptr, std::string(), QKL::QKLMessageIterator::TEXT_FLAGS);
    if (rendered == nullptr) {
        refuse(where, "the message cannot be written as XML text");
        return false;
    }
    text = rendered;
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
    bytes.assign(buffer, std::size_t(length));
    std::free(buffer);
    if (!isBinaryDocument(bytes)) note(where, "message version below 4.0.0: serialized as XML text, as for such peers");
    return true;
}

}  // namespace

bool isBinaryDocument(const std::string& bytes) {
    return bytes.size() >= KIND_PREFIX_BYTES && QKLMsgFactory::kindOf(bytes.data()) != QKLMsgFactory::UnknownKind;
}

QKLMessage* readMessage(const Input& input) {
    if (input.bytes.empty()) {
        refuse(input.name, "empty input");
        return nullptr;
    }
    return isBinaryDocument(input.bytes) ? messageFromBinary(input) : messageFromText(input);
}

QKLMessage* readMessage(const std::string& path, Input& input) {
    return readInput(path, input) ? readMessage(input) : nullptr;
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
