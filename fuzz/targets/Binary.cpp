// Received bytes, as a transport hands them over: framing (isComplete), the
// message made from them (QKLMsgFactory::createNew), a walk of the whole tree
// reading every value type, name, namespace and type, the header, a reply, the
// text form, and the received document copied under an element of another
// message (deserializeToChild, the subtree copy).
//
// The byte promise: a whole binary document of format version 2 that loads is
// handed out by serialize (peer 40500) as exactly the framed bytes received,
// before and after everything is read, and those bytes load again. What the
// writer renews on purpose is left out of the promise:
//  - the header is written fresh (as for every document sent), so its reserved
//    bits come back 0;
//  - a document without a root is not sent (serialize gives -1);
//  - a document whose "version" attribute says a peer below 4.0.0 is sent as
//    XML text, as such a peer expects.
// A binary document that is refused says where and why (lastDocumentError, as
// Format::diagnose finds it); one that is taken leaves no error.
// Besides: every document of format version 2 that the message, its reply or the
// other message holds loads again from its bytes; the copy under the other
// message has the received document's text; a text form that parses is a fixed
// point after one pass.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/targets/FuzzTargets.h"
#include "qkl/QKL.h"

namespace QKLFuzz {

namespace {

using Iterator = std::unique_ptr<const QKL::QKLBinaryIterator>;

// Header byte 4: bit 0 the empty bit, bits 1-2 reserved.
const unsigned char RESERVED_BITS = 0x06;

// Every read at the current element; none may move the iterator or change a byte.
void readEverything(const QKL::QKLBinaryIterator& at) {
    std::string text;
    int number = 0;
    long long wide = 0;
    double real = 0;
    long time = 0;
    bool flag = false;
    at.getValue(text, 0);
    at.getValue(number, 0);
    at.getValue(flag, 0);
    at.getValueLongLong(wide, 0);
    at.getValueDouble(real, 0);
    at.getValueTime(time, 0);
    at.getValueTimeZone(time, number, 0);
    at.getValueBase64(text, 0);
    at.getValueXML(text, 0);
    at.getAttr(text, QKL::QKLBinary::VERSION_ATTRIBUTE);
    at.getAttrTime(time, QKL::QKLBinary::TIME_ATTRIBUTE);
    at.getValue(text, "x_not_there");
    at.curName();
    at.curType();
    at.curNamespaceID();
    at.curID();
}

// Depth first over the whole tree, bounded so that a hostile document cannot make it slow.
void walk(const QKL::QKLMessage& message) {
    const Iterator at(static_cast<const QKL::QKLBinaryIterator*>(message.newIterator()));
    unsigned int depth = 0;
    for (unsigned int step = 0; step < 4096; ++step) {
        readEverything(*at);
        if (at->firstChild() == 0) {
            ++depth;
            continue;
        }
        while (at->nextSibling() != 0) {
            if (depth == 0) return;
            require(at->seekUp() == 0, "a child reached by firstChild has a parent");
            --depth;
        }
    }
}

void readHeader(const QKL::QKLMessage& message) {
    int number = 0;
    long time = 0;
    std::string text;
    message.getVersion(number);
    message.getTime(time);
    message.getProgress(number);
    message.getLog(number);
    message.getType(number);
    message.getID(text);
    message.getPriority(number);
    message.getUid(text);
    message.getTimeout(number);
    message.getTimeoutLimit(number);
    message.getSession(text);
    message.getOrigin();
    message.getTarget();
}

// The bytes serialize must hand out for a received binary document, or "" when
// the byte promise does not cover it (see the top of this file).
std::string promisedEcho(const QKL::QKLMessage& received, const char* bytes, int framed) {
    const QKL::QKLBinary* binary = dynamic_cast<const QKL::QKLBinary*>(&received);
    if (binary == nullptr || framed < int(QKL::binary::HEADER_SIZE) || !QKL::QKLBinary::isOfTheKind(bytes)) return "";
    const QKL::binary::Format document(QKL::binary::Arena::readOnlyView(bytes, unsigned(framed)));
    if (document.version() != QKL::binary::FORMAT_VERSION || document.empty()) return "";
    if (binary->internals()->messageVersion() < int(QKL::binary::MAP_MSG_VERSION)) return "";
    std::string echo(bytes, size_t(framed));
    echo[QKL::binary::FLAGS_OFFSET] = char(echo[QKL::binary::FLAGS_OFFSET] & ~RESERVED_BITS);
    return echo;
}

// The received document under an element of another message: every node keeps its
// name, namespace, type and value, so the copy has the received document's text.
void copyUnderAnotherMessage(const QKL::QKLMessage& received, const char* bytes, int length) {
    QKL::auto_destroy<QKL::QKLMessage> host(QKL::QKLMsgFactory::createNew());
    require(host->create("packet") == 0, "a new message takes the root \"packet\"");
    const std::unique_ptr<QKL::QKLMessageIterator> at(host->newIterator());
    require(at->newChild("data") == 0, "a new element under the root");
    if (at->deserializeToChild(bytes, length) != 0) return;
    requireReloads(*host, "a received document copied under an element loads again");
    require(toLastDataChild(*at), "the copy stands under \"data\"");
    const std::unique_ptr<const QKL::QKLMessageIterator> root(received.newIterator());
    require(subtreeText(*at) == subtreeText(*root), "a document copied under an element keeps its text");
    walk(*host);
}

// Bytes that begin as a binary document does, received by a QKLBinary itself.
void requireDocumentError(const char* bytes, int length) {
    const std::size_t magicBytes = std::min(std::size_t(length), sizeof QKL::binary::MAGIC);
    if (length <= 0 || std::memcmp(bytes, &QKL::binary::MAGIC, magicBytes) != 0) return;
    QKL::auto_destroy<QKL::QKLBinary> message(new QKL::QKLBinary());
    const bool refused = message->init(bytes, length) != 0;
    const QKL::DocumentError& error = message->lastDocumentError();
    require(refused == bool(error), "a binary document is refused exactly when a fault is named");
    const QKL::DocumentError found = QKL::binary::Format::diagnose(bytes, unsigned(length));
    require(!refused || (found.offset == error.offset && std::strcmp(found.reason, error.reason) == 0),
            "the fault named is the first one, as the bytes given show it");
}

}  // namespace

void receive(const char* bytes, std::size_t size) {
    const int length = size > 0xFFFFFFu ? 0xFFFFFF : int(size);
    const int framed = QKL::QKLMessage::isComplete(bytes, length);
    require(framed >= 0 && framed <= length, "isComplete frames within the bytes it was given");
    requireDocumentError(bytes, length);
    QKL::auto_destroy<QKL::QKLMessage> received(QKL::QKLMsgFactory::createNew(bytes, length));
    if (!received) return;
    require(framed > 0, "only a complete stream loads");

    const std::string echo = promisedEcho(*received, bytes, framed);
    if (!echo.empty()) require(bytesOf(*received) == echo, "a received document is written back as received");
    requireReloads(*received, "a received document loads again from the bytes it writes");
    copyUnderAnotherMessage(*received, bytes, length);
    // A document without a root (only a map area) loads, but an iterator on it stands
    // nowhere, and moving or reading through one trips the assertion that guards an
    // empty path, on purpose (genReply reads the request that way too).
    const QKL::QKLBinary* binary = dynamic_cast<const QKL::QKLBinary*>(received.get());
    if (binary == nullptr || binary->internals()->format().empty()) return;

    walk(*received);
    readHeader(*received);
    if (!echo.empty()) require(bytesOf(*received) == echo, "reading a document changes none of its bytes");
    QKL::auto_destroy<QKL::QKLMessage> reply(received->genReply("fuzz"));
    require(reply.get() != nullptr, "genReply always gives a reply");
    requireReloads(*reply, "a reply loads again from the bytes it writes");
    requireTextFixedPoint(textOf(*received));
}

void binaryTarget(const std::uint8_t* data, std::size_t size) {
    assertionsAreFindings();
    receive(reinterpret_cast<const char*>(data), size);
}

}  // namespace QKLFuzz
