#include "qkl/text/TreeBuilder.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "qkl/binary/Format.h"
#include "qkl/binary/Limits.h"
#include "qkl/binary/QKLBinaryInternals.h"

namespace QKL {

using binary::FORMAT_VERSION;
using binary::NODE_HEAD;

namespace {

// The tree's first buffer; it doubles from there.
const size_t FIRST_ROOM = 4096;
// Behind a text: a border (4), then its terminating zero and padding (8 at most).
const size_t PADDING_ROOM = 8;
const size_t TEXT_SLACK = binary::NODE_BORDER + PADDING_ROOM;
const unsigned int LAST_HEADER_TAG = QKLBinaryInternals::LAST_HEADER_TAG;
const unsigned int FIRST_COMPLEX_TYPE_ID = binary::TYPE_FIRST_COMPLEX;
const unsigned int LAST_COMPLEX_TYPE_ID = 0xFFFF;
// The 32-bit word (type, ns) of a plain container without a namespace.
const std::uint32_t PLAIN_CONTAINER_WORD = binary::TYPE_CONTAINER;

template <typename T>
T field(const char* tree, unsigned int at, unsigned int offset) {
    T value;
    std::memcpy(&value, tree + at + offset, sizeof value);
    return value;
}

template <typename T>
void setField(char* tree, unsigned int at, unsigned int offset, T value) {
    std::memcpy(tree + at + offset, &value, sizeof value);
}

unsigned short typeAt(const char* tree, unsigned int at) { return field<std::uint16_t>(tree, at, binary::TYPE_OFFSET); }
unsigned int dataSizeAt(const char* tree, unsigned int at) {
    return field<std::uint32_t>(tree, at, binary::DATA_SIZE_OFFSET);
}

}  // namespace

TreeBuilder::TreeBuilder(QKLBinaryInternals& document)
    : m_document(document), m_tree(nullptr), m_size(0), m_room(0), m_capacity(document.capacity()) {}

TreeBuilder::~TreeBuilder() { std::free(m_tree); }

bool TreeBuilder::makeRoom(size_t size) {
    const size_t room = std::max({size, m_room * 2, FIRST_ROOM});
    char* const tree = static_cast<char*>(std::realloc(m_tree, room));
    if (tree == nullptr) return false;
    m_tree = tree;
    m_room = room;
    return true;
}

std::uint64_t TreeBuilder::documentUsed() const { return m_size + m_document.used(); }

// As QKLBinaryInternals::expand: strictly below the capacity there is room; else
// the buffer doubles, or grows by whole steps for a request at least its size.
bool TreeBuilder::grow(std::uint64_t used, std::uint64_t bytes) {
    if (bytes == 0 || used + bytes < std::uint64_t(m_capacity)) return true;
    const std::int64_t step = QKLBinaryInternals::GROWTH_STEP;
    std::int64_t increment = m_capacity;
    if (bytes >= std::uint64_t(m_capacity)) increment = (std::int64_t(bytes) + step - 1) / step * step;
    if (m_capacity + increment > std::int64_t(Limits::MAX_DOCUMENT_LENGTH)) return false;
    m_capacity += increment;
    return true;
}

int TreeBuilder::mapGrew(unsigned int bytes) { return grow(documentUsed() - bytes, bytes) ? 0 : -1; }

std::int64_t TreeBuilder::append(int tag, unsigned short type, unsigned int dataSize) {
    const std::uint64_t size = binary::nodeSize(FORMAT_VERSION, type, dataSize);
    if (size > Limits::MAX_DOCUMENT_LENGTH || !grow(documentUsed(), size)) return -1;
    const unsigned int at = unsigned(m_size);
    if (!resize(at + size_t(size))) return -1;
    // Every node takes at least 16 bytes.
    std::memset(m_tree + at, 0, NODE_HEAD + binary::NODE_BORDER);
    if (size > NODE_HEAD + binary::NODE_BORDER)
        std::memset(m_tree + at + NODE_HEAD + binary::NODE_BORDER, 0, size_t(size) - NODE_HEAD - binary::NODE_BORDER);
    setField<std::int32_t>(m_tree, at, binary::TAG_OFFSET, tag);
    setField<std::uint16_t>(m_tree, at, binary::TYPE_OFFSET, type);
    setField<std::uint32_t>(m_tree, at, binary::DATA_SIZE_OFFSET, dataSize);
    return at;
}

// Only a first root may go above the root; a plain element takes children while
// it has no payload.
int TreeBuilder::openForChild() {
    if (m_open.empty()) return m_size == 0 ? 0 : -1;
    const unsigned int parent = m_open.back();
    const unsigned short type = typeAt(m_tree, parent);
    if (binary::isContainer(type)) return 0;
    if (type != binary::TYPE_ELEMENT || dataSizeAt(m_tree, parent) != 0) return -1;
    // Both are 16 bytes long without payload: nothing moves.
    setField<std::uint16_t>(m_tree, parent, binary::TYPE_OFFSET, binary::TYPE_CONTAINER);
    return 0;
}

bool TreeBuilder::refusesChild() const {
    if (m_open.empty()) return m_size != 0;
    const unsigned short type = typeAt(m_tree, m_open.back());
    return !binary::isContainer(type) && (type != binary::TYPE_ELEMENT || dataSizeAt(m_tree, m_open.back()) != 0);
}

int TreeBuilder::open(int tag) {
    if (openForChild() != 0) return -1;
    const std::int64_t at = append(tag, binary::TYPE_ELEMENT, 0);
    if (at < 0) return -1;
    m_open.push_back(unsigned(at));
    return named(tag) ? 0 : -1;
}

// Tags above the header attributes must have a name; a tag that has one keeps it.
bool TreeBuilder::named(int tag) {
    if (unsigned(tag) <= LAST_HEADER_TAG) return true;
    int& known = m_named[unsigned(tag) % NAMED_SLOTS];
    if (known == tag) return true;
    if (m_document.idMap().findIDC(tag).empty()) return false;
    known = tag;
    return true;
}

int TreeBuilder::addValue(int tag, unsigned short type, const char* data, std::size_t length) {
    if (length > std::size_t(INT_MAX) || openForChild() != 0) return -1;
    const unsigned int dataSize = unsigned(length) + 1;
    const std::int64_t at = append(tag, type, dataSize);
    if (at < 0) return -1;
    char* const payload = m_tree + at + NODE_HEAD + binary::nodeBorder(type, dataSize);
    std::memcpy(payload, data, length);
    return named(tag) ? 0 : -1;
}

int TreeBuilder::setNamespace(int ns) {
    setField<std::uint16_t>(m_tree, m_open.back(), binary::NS_OFFSET, static_cast<unsigned short>(ns));
    return ns == 0 || !m_document.idMap().findIDC(ns).empty() ? 0 : -1;
}

int TreeBuilder::setComplexType(int typeID) {
    if (unsigned(typeID) < FIRST_COMPLEX_TYPE_ID || typeID > int(LAST_COMPLEX_TYPE_ID)) return -1;
    const unsigned int at = m_open.back();
    const unsigned short ns = field<std::uint16_t>(m_tree, at, binary::NS_OFFSET);
    // An element without a value or namespace is an empty container in waiting.
    if (ns == 0 && typeAt(m_tree, at) == binary::TYPE_ELEMENT && dataSizeAt(m_tree, at) == 0)
        setField<std::uint16_t>(m_tree, at, binary::TYPE_OFFSET, binary::TYPE_CONTAINER);
    const std::uint32_t word = std::uint32_t(typeAt(m_tree, at)) | (std::uint32_t(ns) << 16);
    if (word != PLAIN_CONTAINER_WORD) return 0;
    setField<std::uint16_t>(m_tree, at, binary::TYPE_OFFSET, static_cast<unsigned short>(typeID));
    return m_document.idMap().findTypeIDC(typeID).empty() ? -1 : 0;
}

char* TreeBuilder::textRoom(std::size_t length) {
    const unsigned int at = m_open.back();
    if (binary::isContainer(typeAt(m_tree, at))) {
        // Only an xsi:type makes a container without children: a simple type's text
        // is kept as text. Header attribute children cannot stand beside text.
        if (m_size != at + NODE_HEAD + binary::NODE_BORDER) return nullptr;
        setField<std::uint16_t>(m_tree, at, binary::TYPE_OFFSET, binary::TYPE_ELEMENT);
    }
    // The element has no children: its node is the last one. Behind the text
    // stays room for setText's border, terminating zero and padding.
    if (!resize(at + NODE_HEAD + length + TEXT_SLACK)) return nullptr;
    m_size = at + NODE_HEAD;
    return m_tree + at + NODE_HEAD;
}

int TreeBuilder::setText(std::size_t length) {
    const unsigned int at = m_open.back();
    if (length > std::size_t(INT_MAX)) return -1;
    const unsigned int dataSize = unsigned(length) + 1;
    const std::uint64_t oldSize = binary::nodeSize(FORMAT_VERSION, binary::TYPE_ELEMENT, 0);
    const std::uint64_t newSize = binary::nodeSize(FORMAT_VERSION, binary::TYPE_ELEMENT, dataSize);
    // The node still counts at its old size in the tree the document would hold.
    const std::uint64_t used = at + oldSize + m_document.used();
    if (newSize > Limits::MAX_DOCUMENT_LENGTH || !grow(used, newSize - oldSize)) return -1;
    const unsigned int border = binary::nodeBorder(binary::TYPE_ELEMENT, dataSize);
    char* const node = m_tree + at;
    if (border != 0) {
        std::memmove(node + NODE_HEAD + border, node + NODE_HEAD, length);
        std::memset(node + NODE_HEAD, 0, border);
    }
    // The terminating zero and the padding: at most 8 bytes, inside the slack.
    std::memset(node + NODE_HEAD + border + length, 0, PADDING_ROOM);
    m_size = at + size_t(newSize);
    setField<std::uint32_t>(m_tree, at, binary::DATA_SIZE_OFFSET, dataSize);
    return 0;
}

void TreeBuilder::close() {
    const unsigned int at = m_open.back();
    m_open.pop_back();
    if (binary::isContainer(typeAt(m_tree, at)))
        setField<std::uint32_t>(m_tree, at, binary::DATA_SIZE_OFFSET,
                                unsigned(m_size - (at + NODE_HEAD + binary::NODE_BORDER)));
}

int TreeBuilder::finish() {
    if (m_size == 0) return 0;
    const int tag = field<std::int32_t>(m_tree, 0, binary::TAG_OFFSET);
    const unsigned short type = typeAt(m_tree, 0);
    const unsigned short ns = field<std::uint16_t>(m_tree, 0, binary::NS_OFFSET);
    const unsigned int dataSize = dataSizeAt(m_tree, 0);
    const char* const payload = m_tree + NODE_HEAD + binary::nodeBorder(type, dataSize);
    BinaryPath path;
    if (m_document.insert(path, tag, type, dataSize ? payload : nullptr, int(dataSize), false) != 0) return -1;
    return ns == 0 ? 0 : m_document.setNamespace(path, ns);
}

}  // namespace QKL
