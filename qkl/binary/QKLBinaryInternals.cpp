#include "qkl/binary/QKLBinaryInternals.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "qkl/common/QKLAssert.h"

namespace QKL {

using binary::Format;
using binary::Node;

namespace {

const unsigned int FIRST_COMPLEX_TYPE_ID = 101;
// The 32-bit word (type, ns) of a plain container without a namespace.
const std::uint32_t PLAIN_CONTAINER_WORD = binary::TYPE_CONTAINER;

// 1 when the stored value keeps a terminating zero byte.
// Never for a container, whose data size must stay a sum of node sizes.
int extraByte(int type, bool terminate) {
    if (binary::isContainer(static_cast<unsigned short>(type))) return 0;
    return terminate || type == binary::TYPE_BASE64 ? 1 : 0;
}

}  // namespace

QKLBinaryInternals::QKLBinaryInternals() : m_buffer(nullptr), m_changes(0), m_capacity(0), m_used(0), m_idMap(this) {}

QKLBinaryInternals::QKLBinaryInternals(const QKLBinaryInternals* source)
    : m_buffer(nullptr), m_changes(0), m_capacity(0), m_used(0), m_idMap(source->m_idMap) {
    m_idMap.setDoc(this);
    if (source->m_buffer != nullptr && expand(int(source->m_used), true) != nullptr) {
        std::memcpy(m_buffer, source->m_buffer, source->m_used);
        m_used = source->m_used;
    }
    // Set last: the growth above bumps the counter, and the copy's counter is the source's + 1.
    m_changes = source->m_changes + 1;
}

QKLBinaryInternals::~QKLBinaryInternals() { std::free(m_buffer); }

// ---- the buffer -------------------------------------------------------------------------------

char* QKLBinaryInternals::expand(int bytes, bool zero) {
    // Strictly below: a request that would exactly fill the buffer still grows it.
    if (bytes <= 0 || std::int64_t(m_used) + bytes < m_capacity) return m_buffer;
    std::int64_t increment = m_capacity;
    if (bytes >= m_capacity) increment = (std::int64_t(bytes) + GROWTH_STEP - 1) / GROWTH_STEP * GROWTH_STEP;
    const std::int64_t grown = m_capacity + increment;
    if (grown > std::int64_t(Limits::MAX_DOCUMENT_LENGTH)) return nullptr;
    char* buffer = static_cast<char*>(std::realloc(m_buffer, size_t(grown)));
    if (buffer == nullptr) return nullptr;
    if (zero) std::memset(buffer + m_capacity, 0, size_t(increment));
    m_buffer = buffer;
    m_capacity = int(grown);
    ++m_changes;
    return m_buffer;
}

int QKLBinaryInternals::turnBlank() {
    ++m_changes;
    m_used = 0;
    m_idMap.reset();
    if (expand(GROWTH_STEP, true) == nullptr) return -1;
    Format(arena(), binary::FORMAT_VERSION);
    m_used = binary::HEADER_SIZE;
    return 0;
}

char* QKLBinaryInternals::copy(const char* bytes, int length) {
    if (bytes == nullptr || length < int(binary::HEADER_SIZE) || unsigned(length) > Limits::MAX_RECEIVED_LENGTH)
        return nullptr;
    const Format received(binary::Arena::readOnlyView(bytes, unsigned(length)));
    if (!received || received.size(binary::MAP_MSG_VERSION) != unsigned(length)) return nullptr;
    const unsigned int previousUsed = m_used;
    m_used = 0;
    if (expand(length, false) == nullptr) {
        m_used = previousUsed;
        return nullptr;
    }
    std::memcpy(m_buffer, bytes, size_t(length));
    m_used = unsigned(length);
    m_idMap.reset();
    ++m_changes;  // a different document: every offset held elsewhere is stale
    return m_buffer;
}

// ---- node primitives ---------------------------------------------------------------------------

void QKLBinaryInternals::bumpIfTreeMoved(std::uint32_t changesBefore, unsigned int movedFrom, unsigned int treeEnd) {
    // Growth bumped the counter already. Otherwise tree bytes moved unless the edit
    // began at the tree's end (appending to the last node moves only the map area).
    // treeEnd is taken before the edit: alloc and realloc leave the ancestors'
    // sizes to the caller, so the root's size is stale right after it.
    if (m_changes == changesBefore && movedFrom < treeEnd) ++m_changes;
}

unsigned int QKLBinaryInternals::growForNode(unsigned int dataSize, int type) {
    const std::uint64_t size = format().calculate(static_cast<unsigned short>(type), dataSize);
    return size > Limits::MAX_DOCUMENT_LENGTH || expand(int(size), false) == nullptr ? 0 : unsigned(size);
}

unsigned int QKLBinaryInternals::alloc(unsigned int dataSize, int type, unsigned int at) {
    const std::uint32_t changesBefore = m_changes;
    const unsigned int size = growForNode(dataSize, type);
    if (size == 0) return 0;
    const unsigned int treeEnd = format().beyond(binary::HEADER_SIZE);
    if (format().insert(at, dataSize, static_cast<unsigned short>(type)).empty()) return 0;
    m_used += size;
    bumpIfTreeMoved(changesBefore, at, treeEnd);
    return size;
}

unsigned int QKLBinaryInternals::allocInMap(unsigned int dataSize, int kind) {
    // Checked before growth, so that a refused entry leaves even the capacity as it was.
    if (!format().map().takes(dataSize, static_cast<unsigned short>(kind)) || growForNode(dataSize, kind) == 0)
        return 0;
    Format document = format();
    const unsigned int inserted = document.map().insert(dataSize, static_cast<unsigned short>(kind));
    m_used += inserted;
    return inserted;
}

int QKLBinaryInternals::realloc(unsigned int dataSize, int type, unsigned int at, int& delta) {
    const std::uint64_t oldSize = Node(arena(), at).size();
    const std::uint64_t newSize = format().calculate(static_cast<unsigned short>(type), dataSize);
    if (oldSize == 0 || newSize > Limits::MAX_DOCUMENT_LENGTH) return -1;
    delta = int(std::int64_t(newSize) - std::int64_t(oldSize));
    const std::uint32_t changesBefore = m_changes;
    if (delta > 0 && expand(delta, false) == nullptr) return -1;
    const unsigned int treeEnd = format().beyond(binary::HEADER_SIZE);
    if (format().resize(at, dataSize, static_cast<unsigned short>(type)).empty()) return -1;
    m_used += unsigned(delta);
    if (delta != 0) bumpIfTreeMoved(changesBefore, at + unsigned(oldSize), treeEnd);
    return 0;
}

int QKLBinaryInternals::free(unsigned int at) {
    ++m_changes;
    const unsigned int removed = format().unlink(at);
    m_used -= removed;
    return -int(removed);
}

void QKLBinaryInternals::update(BinaryPath::Elements::const_iterator first,
                                BinaryPath::Elements::const_iterator last, int delta) {
    if (delta == 0) return;
    const binary::Arena view = arena();
    for (; first != last; ++first) {
        char* const head = view.writeSpan(first->offset, binary::NODE_HEAD);
        if (head == nullptr) {  // outside the buffer: the field accessors report it
            Node node(view, first->offset);
            node.setDataSize(node.dataSize() + unsigned(delta));
            continue;
        }
        std::uint32_t dataSize = 0;
        std::memcpy(&dataSize, head + binary::DATA_SIZE_OFFSET, sizeof dataSize);
        dataSize += unsigned(delta);
        std::memcpy(head + binary::DATA_SIZE_OFFSET, &dataSize, sizeof dataSize);
    }
}

// ---- path-addressed edits -------------------------------------------------------------------------

unsigned int QKLBinaryInternals::childOffset(const BinaryPath& path) const {
    const Format document = format();
    if (path.empty()) return document.map().offset();
    if (document.empty()) return 0;
    const Node node(arena(), path.current().offset);
    if (node.isContainer()) return node.offset() + unsigned(node.size());
    if (node.type() != binary::TYPE_ELEMENT) return 0;
    // A plain element takes children once it is an empty container; one that still
    // carries payload would change size, so it is refused (the caller empties it first).
    QKL_ASSERT(node.dataSize() == 0);
    return node.dataSize() == 0 ? node.offset() + unsigned(node.size()) : 0;
}

void QKLBinaryInternals::openElement(const BinaryPath& path) {
    if (path.empty() || format().empty()) return;
    Node node(arena(), path.current().offset);
    // Both are 16 bytes long without payload: nothing moves.
    if (node.type() == binary::TYPE_ELEMENT && node.dataSize() == 0) node.setType(binary::TYPE_CONTAINER);
}

unsigned int QKLBinaryInternals::getInsertOffset(const BinaryPath& path) {
    const unsigned int at = childOffset(path);
    if (at != 0) openElement(path);
    return at;
}

int QKLBinaryInternals::insert(BinaryPath& path, int tag, int type, const void* data, int length,
                               bool terminate) {
    // Above the root only a first root may go: a second one would land in the map area.
    if (length < 0 || (path.empty() && !format().empty())) return -1;
    // The parent is opened only once the child has room: a refused insertion
    // leaves even a plain element's type as it was.
    const unsigned int at = childOffset(path);
    if (at == 0) return -1;
    const int extra = extraByte(type, terminate);
    const unsigned int dataSize = unsigned(length) + unsigned(extra);
    const unsigned int size = alloc(dataSize, type, at);
    if (size == 0) return -1;
    openElement(path);
    Node node(arena(), at);
    node.setNs(path.currentNamespace());
    node.setTag(tag);
    node.setData(data, dataSize, extra != 0);
    update(path.elements.begin(), path.elements.end(), int(size));
    path.push(tag, at);
    // Tags above the header attributes must have a name (per-document IDs,
    // being negative, count as above when compared unsigned).
    if (unsigned(tag) > unsigned(LAST_HEADER_TAG)) return m_idMap.findIDC(tag).empty() ? -1 : 0;
    setVersionFrom(tag, data, length);
    return 0;
}

int QKLBinaryInternals::setContent(BinaryPath& path, int type, const void* data, int length, bool terminate) {
    QKL_ASSERT(!path.empty());
    if (path.empty() || length < 0) return -1;
    const BinaryPath::Element current = path.current();
    if (length > 0 && Node(arena(), current.offset).isContainer()) return -1;
    const int extra = extraByte(type, terminate);
    const unsigned int dataSize = unsigned(length) + unsigned(extra);
    int delta = 0;
    if (realloc(dataSize, type, current.offset, delta) != 0) return -1;
    Node(arena(), current.offset).setData(data, dataSize, extra != 0);
    update(path.elements.begin(), path.elements.end() - 1, delta);
    setVersionFrom(current.tag, data, length);
    return 0;
}

int QKLBinaryInternals::erase(BinaryPath& path) {
    QKL_ASSERT(!path.empty());
    if (path.empty()) return -1;
    const int removed = free(path.current().offset);
    update(path.elements.begin(), path.elements.end() - 1, removed);
    path.pop();
    // Without a root the header must say so, or the tree end would be read from the map area.
    if (path.empty()) format().setEmpty(true);
    return 0;
}

int QKLBinaryInternals::setNamespace(BinaryPath& path, int nsID) {
    if (path.empty()) return -1;
    Node(arena(), path.current().offset).setNs(static_cast<unsigned short>(nsID));
    // Namespace 0 is "no namespace", which needs no name.
    return nsID == 0 || !m_idMap.findIDC(nsID).empty() ? 0 : -1;
}

int QKLBinaryInternals::curNamespaceID(const BinaryPath& path) const {
    if (path.empty()) return -1;
    return Node(arena(), path.current().offset).ns();
}

int QKLBinaryInternals::setComplexType(BinaryPath& path, int typeID) {
    if (path.empty() || unsigned(typeID) < FIRST_COMPLEX_TYPE_ID || typeID > 0xFFFF) return -1;
    Node node(arena(), path.current().offset);
    // An element without a value or namespace is an empty container in waiting (its
    // first child would make it one): it takes the type as the container would.
    if (node.ns() == 0) openElement(path);
    const std::uint32_t word = std::uint32_t(node.type()) | (std::uint32_t(node.ns()) << 16);
    if (word != PLAIN_CONTAINER_WORD) return 0;
    node.setType(static_cast<unsigned short>(typeID));
    return m_idMap.findTypeIDC(typeID).empty() ? -1 : 0;
}

int QKLBinaryInternals::add2map(unsigned int id, unsigned short kind, const char* name, unsigned int length) {
    // Without a buffer there is no document, and growth would make one with no header.
    if (m_buffer == nullptr || length == UINT_MAX || allocInMap(length + 1, kind) == 0) return -1;
    Format document = format();
    Node entry(document.arena(), document.map().offset());
    entry.setTag(int(id));
    // The gap holds stale bytes (growth does not zero, edits leave old nodes behind
    // the document), and a nonzero ns makes the whole map area unreadable.
    entry.setNs(0);
    entry.setData(name, length + 1, true);
    return 0;
}

// ---- the message version ----------------------------------------------------------------------------

int QKLBinaryInternals::foldVersion(const char* text, unsigned int length) {
    // Unsigned arithmetic: a long hostile text wraps instead of overflowing.
    std::uint32_t value = 0, number = 0;
    for (unsigned int i = 0; i < length; ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') {
            number = number * 10 + std::uint32_t(c - '0');
        } else {
            value = value * 100 + number;
            number = 0;
        }
    }
    return int(value * 100 + number);
}

void QKLBinaryInternals::setVersionFrom(int tag, const void* data, int length) {
    if (tag != VERSION_TAG || data == nullptr) return;
    const char* text = static_cast<const char*>(data);
    // The text ends at its terminating zero, if it carries one.
    const void* nul = std::memchr(text, 0, size_t(length));
    const unsigned int textLength = nul ? unsigned(static_cast<const char*>(nul) - text) : unsigned(length);
    m_idMap.setMessageVersion(foldVersion(text, textLength));
}

}  // namespace QKL
