#include "qkl/binary/QKLBinary.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {

using binary::Format;

unsigned int QKLBinary::Policy = 0;

namespace {

// The whole received document checked before it is adopted: the tree tiles
// exactly (every node inside its parent) and every map entry is well-formed.
bool receivable(const char* bytes, int length) {
    const Format received(binary::Arena::readOnlyView(bytes, unsigned(length)));
    if (!received.empty() && !received.root().subtreeValid()) return false;
    return received.map().valid();
}

// Why a received document cannot be carried into another one: the first node,
// in document order, whose tag, ns or complex type neither a vocabulary nor the
// document's map area names (as CopyAssistant::ascertain reads them). Clear when
// every ID has a name: the copy then failed on the target's side.
DocumentError unnamedNode(const QKLBinaryInternals& received) {
    const QKLProtocolIDMap& names = received.idMap();
    std::vector<Format::node_range> ranges(1, received.format().root());
    while (!ranges.empty()) {
        Format::node_range& range = ranges.back();
        if (!range.valid()) {
            ranges.pop_back();
            continue;
        }
        const binary::Node node = range.node();
        const bool headerTag = node.tag() > 0 && node.tag() <= QKLBinaryInternals::LAST_HEADER_TAG;
        if ((!headerTag && names.findIDC(node.tag()).empty()) || (node.ns() != 0 && names.findIDC(node.ns()).empty()) ||
            (node.type() >= binary::TYPE_FIRST_COMPLEX && names.findTypeIDC(node.type()).empty()))
            return DocumentError{node.offset(), DocumentError::UNNAMED_ID};
        const Format::node_range children = range.children();
        range = range.next();
        if (!children.empty()) ranges.push_back(children);
    }
    return DocumentError();
}

}  // namespace

QKLBinary::QKLBinary()
    : m_policy(Policy), m_idNotToSave(false), m_internals(new QKLBinaryInternals()), m_iteratorCount(0) {}

QKLBinary::~QKLBinary() { delete m_internals; }

const char* QKLBinary::messageType() const { return MessageType; }

QKLMessage* QKLBinary::newMessage() const { return new QKLBinary(); }

QKLMessageIterator* QKLBinary::newIterator() {
    ++m_iteratorCount;
    return new QKLBinaryIterator(this);
}

const QKLMessageIterator* QKLBinary::newIterator() const { return const_cast<QKLBinary*>(this)->newIterator(); }

// ---- framing ------------------------------------------------------------------------------------

int QKLBinary::isOfTheKind(const char* bytes) {
    return bytes != nullptr && std::memcmp(bytes, &binary::MAGIC, sizeof binary::MAGIC) == 0;
}

int QKLBinary::isComplete(const char* bytes, int length) {
    if (bytes == nullptr || length <= 0) return 0;
    // Bytes that cannot begin the magic are text at once: "abc" + NUL is
    // complete at 4 bytes, although Format::probe wants 8 before it decides.
    const size_t prefix = std::min(size_t(length), sizeof binary::MAGIC);
    if (std::memcmp(bytes, &binary::MAGIC, prefix) == 0) return int(Format::probe(bytes, unsigned(length)));
    const void* zero = std::memchr(bytes, 0, size_t(length));
    return zero ? int(static_cast<const char*>(zero) - bytes) + 1 : 0;
}

// ---- making and receiving documents ----------------------------------------------------------

int QKLBinary::create(int rootID) {
    resetHeaderData();
    // A shared document stays with the other sharers.
    if (multiReference() && hardcopy() != 0) return -1;
    if (m_internals == nullptr || m_internals->turnBlank() != 0) return -1;
    BinaryPath path;
    return m_internals->insert(path, rootID, binary::TYPE_CONTAINER, nullptr, 0, false);
}

int QKLBinary::create(const char* rootName) {
    if (rootName == nullptr || m_internals == nullptr) return -1;
    const int id = m_internals->idMap().findStrC(Internal::CharArray(rootName), QKLDefaultMap::findElem);
    return id == 0 ? -1 : create(id);
}

int QKLBinary::init(const char* buf, int len) { return deserialize(buf, len, nullptr); }

int QKLBinary::deserialize(const char* buf, int len, QKLMessageIterator* to) {
    m_documentError = DocumentError();
    const int complete = isComplete(buf, len);
    if (complete <= 0) return refuseDocument(buf, len);
    // Anything but a binary document is XML text, ended by the zero byte that isComplete found.
    if (complete < int(binary::HEADER_SIZE) || !isOfTheKind(buf)) return fromText(buf, to);
    if (!receivable(buf, complete)) return refuseDocument(buf, complete);
    if (to == nullptr) return adopt(buf, complete);
    const QKLBinaryIterator* at = ownIterator(to);
    return at ? adoptUnder(buf, complete, *const_cast<QKLBinaryIterator*>(at)) : -1;
}

int QKLBinary::refuseDocument(const char* bytes, int length) {
    // Incomplete text (no zero byte yet) is not a document.
    if (bytes != nullptr && length > 0) {
        const DocumentError found = Format::diagnose(bytes, unsigned(length));
        if (found && std::strcmp(found.reason, DocumentError::NOT_BINARY) != 0) m_documentError = found;
    }
    return -1;
}

int QKLBinary::adopt(const char* bytes, int length) {
    if (multiReference() && hardcopy() != 0) return -1;
    // Past the receiving limit, the one refusal of the adoption that lies in the bytes.
    if (m_internals == nullptr || m_internals->copy(bytes, length) == nullptr) return refuseDocument(bytes, length);
    // The document's message version is that of its "version" attribute.
    int version = 0;
    if (getVersion(version) == 0) m_internals->idMap().setMessageVersion(version);
    return 0;
}

int QKLBinary::adoptUnder(const char* bytes, int length, QKLBinaryIterator& at) {
    if (at.validateInternals() != 0) return -1;
    QKLBinaryInternals received;
    if (received.copy(bytes, length) == nullptr) return refuseDocument(bytes, length);
    if (received.format().empty()) {
        m_documentError = DocumentError{binary::FLAGS_OFFSET, DocumentError::NO_ROOT_TO_PLACE};
        return -1;
    }
    // An empty path names the received root.
    if (m_internals->copy(received.buffer(), BinaryPath(), received.idMap(), at.path()) == 0) return 0;
    m_documentError = unnamedNode(received);
    return -1;
}

int QKLBinary::deserialize(const QKLMessageIterator* from, QKLMessageIterator* to) {
    m_documentError = DocumentError();
    const QKLBinaryIterator* source = dynamic_cast<const QKLBinaryIterator*>(from);
    if (source == nullptr || source->validateStamp() != 0 || source->path().empty()) return -1;
    QKLBinaryInternals* sourceDocument = source->binaryMessage()->internals();
    if (to == nullptr) {
        // No target iterator: the subtree becomes this message's whole document.
        char* bytes = nullptr;
        int length = 0;
        if (source->binaryMessage()->serialize(&bytes, &length, source, binary::MAP_MSG_VERSION) != 0) return -1;
        const int result = adopt(bytes, length);
        std::free(bytes);
        return result;
    }
    const QKLBinaryIterator* at = ownIterator(to);
    if (at == nullptr || at->validateInternals() != 0) return -1;
    return m_internals->copy(sourceDocument->buffer(), source->path(), sourceDocument->idMap(), at->path());
}

const QKLBinaryIterator* QKLBinary::ownIterator(const QKLMessageIterator* at) const {
    const QKLBinaryIterator* own = dynamic_cast<const QKLBinaryIterator*>(at);
    return own != nullptr && own->getMessage() == this ? own : nullptr;
}

// ---- writing documents ----------------------------------------------------------------------------

int QKLBinary::serialize(char** buf, int* len, const QKLMessageIterator* from, int peerVersion) const {
    if (buf == nullptr || len == nullptr || m_internals == nullptr || m_internals->buffer() == nullptr) return -1;
    const int version = std::min(m_internals->messageVersion(), peerVersion);
    // A peer below 40000 reads XML text, with its zero byte, as isComplete frames it.
    if (version < int(binary::MAP_MSG_VERSION)) {
        char* text = toText(from, std::string(), version);
        if (text == nullptr) return -1;
        *buf = text;
        *len = int(std::strlen(text)) + 1;
        return 0;
    }
    const Format document = m_internals->format();
    if (document.empty()) return -1;
    unsigned int node = binary::HEADER_SIZE;
    if (from != nullptr) {
        const QKLBinaryIterator* at = ownIterator(from);
        if (at == nullptr || at->validateStamp() != 0 || at->path().empty()) return -1;
        node = at->path().current().offset;
    }
    const binary::Arena copy = document.duplicate(node, unsigned(version));
    if (!copy.isSet() || copy.size() > INT_MAX) {
        std::free(copy.writableStart());
        return -1;
    }
    *buf = copy.writableStart();
    *len = int(copy.size());
    return 0;
}

int QKLBinary::serialize(char* buf, unsigned long* len, const QKLMessageIterator* from) const {
    if (len == nullptr || m_internals == nullptr || m_internals->buffer() == nullptr) return -1;
    const Format document = m_internals->format();
    unsigned int node = binary::HEADER_SIZE;
    if (from != nullptr) {
        const QKLBinaryIterator* at = ownIterator(from);
        if (at == nullptr || at->validateStamp() != 0 || at->path().empty()) return -1;
        node = at->path().current().offset;
    } else if (document.empty()) {
        return -1;
    }
    if (buf == nullptr) {
        *len = document.size(node, binary::MAP_MSG_VERSION);
        return -2;
    }
    binary::Arena target = binary::Arena::writableView(buf, unsigned(std::min(*len, (unsigned long)UINT_MAX)));
    if (document.duplicate(node, target, binary::MAP_MSG_VERSION) != 0) return -1;
    *len = target.size();
    return 0;
}

// ---- sharing the document -----------------------------------------------------------------------

int QKLBinary::assignInternals(const QKLMessage* other) {
    const QKLBinary* source = dynamic_cast<const QKLBinary*>(other);
    if (source == nullptr) return -1;
    delete m_internals;
    m_internals = source->m_internals;
    copyHeaderData(*source);
    return 0;
}

int QKLBinary::copyInternals() const {
    if (m_internals == nullptr || m_internals->buffer() == nullptr) return -1;
    std::unique_ptr<QKLBinaryInternals> copy(new QKLBinaryInternals(m_internals));
    if (copy->buffer() == nullptr) return -1;
    // The old document stays with the other sharers.
    m_internals = copy.release();
    return 0;
}

int QKLBinary::releaseInternals() {
    m_internals = nullptr;
    return 0;
}

}  // namespace QKL
