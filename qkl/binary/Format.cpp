// Format: the document header, document sizes, framing, and the
// editing operations. Each edit is one memmove of the bytes behind the edited node.
#include "qkl/binary/Format.h"

#include <cstring>

#include "qkl/common/QKLAssert.h"

namespace QKL {
namespace binary {

Format::Format(const Arena& arena, unsigned char version) : m_arena(arena), m_map(*this) {
    char* header = m_arena.writeSpan(0, HEADER_SIZE);
    QKL_ASSERT(header != nullptr);
    if (header == nullptr) return;
    const std::uint32_t magic = MAGIC;
    const std::uint32_t flags = EMPTY_BIT;  // reserved bits and map length 0
    std::memcpy(header + MAGIC_OFFSET, &magic, sizeof magic);
    std::memcpy(header + FLAGS_OFFSET, &flags, sizeof flags);
    header[VERSION_OFFSET] = static_cast<char>(version);
}

// ---- Header fields -------------------------------------------------------------------

Format::operator bool() const {
    // Silent: this is how a caller asks whether the bytes are a document at all.
    const char* magic = m_arena.readSpan(MAGIC_OFFSET, sizeof MAGIC);
    return magic != nullptr && std::memcmp(magic, &MAGIC, sizeof MAGIC) == 0;
}

void Format::setFlags(std::uint32_t flags) {
    if (!m_arena.isWritable()) return;
    char* word = m_arena.writeSpan(FLAGS_OFFSET, sizeof flags);
    QKL_ASSERT(word != nullptr);
    if (word) std::memcpy(word, &flags, sizeof flags);
}

void Format::setEmpty(bool empty) { setFlags(empty ? flags() | EMPTY_BIT : flags() & ~EMPTY_BIT); }

unsigned char Format::version() const {
    const char* byte = m_arena.readSpan(VERSION_OFFSET, 1);
    QKL_ASSERT(byte != nullptr);
    return byte ? static_cast<unsigned char>(*byte) : 0;
}

void Format::setVersion(unsigned char version) {
    if (!m_arena.isWritable()) return;
    char* byte = m_arena.writeSpan(VERSION_OFFSET, 1);
    QKL_ASSERT(byte != nullptr);
    if (byte) *byte = static_cast<char>(version);
}

unsigned int Format::mapLength() const { return (flags() >> MAP_LENGTH_SHIFT) & MAP_LENGTH_MASK; }

void Format::setMapLength(unsigned int units) {
    const std::uint32_t field = MAP_LENGTH_MASK << MAP_LENGTH_SHIFT;
    setFlags((flags() & ~field) | ((units & MAP_LENGTH_MASK) << MAP_LENGTH_SHIFT));
}

// ---- Sizes ------------------------------------------------------------------------------

Format::node_range Format::root() const { return node_range{m_arena, HEADER_SIZE, beyond(HEADER_SIZE)}; }

unsigned int Format::size(unsigned int at, unsigned int msgVersion) const {
    std::uint64_t total = HEADER_SIZE;
    if (at < beyond(at)) {
        const std::uint64_t nodeBytes = node_range{m_arena, at, m_arena.size()}.size();
        if (nodeBytes == 0) return 0;  // the node does not fit in the arena
        total += nodeBytes;
    }
    if (msgVersion >= MAP_MSG_VERSION) total += m_map.size();
    return total > 0xFFFFFFFFu ? 0 : static_cast<unsigned int>(total);
}

unsigned int Format::probe(const char* bytes, unsigned int length) {
    if (bytes == nullptr || length < HEADER_SIZE) return 0;
    if (std::memcmp(bytes + MAGIC_OFFSET, &MAGIC, sizeof MAGIC) != 0) return NOT_BINARY;
    // A lone header is deliberately "incomplete", although an empty document is 8 bytes.
    if (length == HEADER_SIZE) return 0;
    const Arena arena = Arena::readOnlyView(bytes, length);
    if (Node::probe(arena, HEADER_SIZE)) return 0;
    // The map area always counts here, whatever the peer's message version.
    const unsigned int total = Format(arena).size(HEADER_SIZE, MAP_MSG_VERSION);
    return total != 0 && total <= length ? total : 0;
}

// ---- Edits (trusting the caller; refused, not performed, when out of the arena) ------

bool Format::move(unsigned int from, std::uint64_t to, unsigned int end) {
    // Nothing moves into the header, and only document bytes move.
    const bool editInsideDocument = HEADER_SIZE <= from && from <= end && HEADER_SIZE <= to;
    QKL_ASSERT(editInsideDocument);
    if (!editInsideDocument) return false;
    const unsigned int length = end - from;
    // Both spans checked against the arena before anything moves.
    const char* source = m_arena.readSpan(from, length);
    char* target = to <= 0xFFFFFFFFu ? m_arena.writeSpan(static_cast<unsigned int>(to), length) : nullptr;
    QKL_ASSERT(source != nullptr && target != nullptr);
    if (source == nullptr || target == nullptr) return false;
    if (length > 0) std::memmove(target, source, length);
    return true;
}

unsigned int Format::doInsert(unsigned int at, unsigned int dataSize, unsigned short type) {
    const std::uint64_t gap = calculate(type, dataSize);
    // move() also covers the new node itself: it ends at or before the moved run's new start.
    if (!move(at, at + gap, size(MAP_MSG_VERSION))) return 0;
    Node node(m_arena, at);
    node.setType(type);
    node.setDataSize(dataSize);
    return static_cast<unsigned int>(gap);
}

Format::node_range Format::insert(unsigned int at, unsigned int dataSize, unsigned short type) {
    const bool wasEmpty = empty();
    const unsigned int treeEnd = beyond(at);  // before the node exists
    const unsigned int gap = doInsert(at, dataSize, type);
    if (gap == 0) return node_range{m_arena, at, at};
    // A value node cannot be a root; only an element or a container makes the tree.
    if (wasEmpty && (type == TYPE_ELEMENT || isContainer(type))) setEmpty(false);
    return node_range{m_arena, at, treeEnd + gap};
}

Format::node_range Format::resize(unsigned int at, unsigned int dataSize, unsigned short type) {
    const node_range refused{m_arena, at, at};
    const bool nodeFits = !Node::probe(m_arena, at);
    QKL_ASSERT(nodeFits);
    if (!nodeFits) return refused;
    const std::uint64_t oldSize = Node(m_arena, at).size();
    const std::uint64_t newSize = calculate(type, dataSize);
    const unsigned int treeEnd = beyond(at);  // before the node changes size
    const unsigned int end = size(MAP_MSG_VERSION);
    const bool nodeInsideDocument = at + oldSize <= end && m_arena.writeSpan(at, newSize) != nullptr;
    QKL_ASSERT(nodeInsideDocument);
    if (!nodeInsideDocument || !move(static_cast<unsigned int>(at + oldSize), at + newSize, end)) return refused;
    Node node(m_arena, at);
    node.setType(type);
    node.setDataSize(dataSize);
    return node_range{m_arena, at, static_cast<unsigned int>(treeEnd + newSize - oldSize)};
}

unsigned int Format::unlink(unsigned int at) {
    const bool nodeFits = !Node::probe(m_arena, at);
    QKL_ASSERT(nodeFits);
    if (!nodeFits) return 0;
    const std::uint64_t removed = Node(m_arena, at).size();
    const unsigned int end = size(MAP_MSG_VERSION);
    const bool nodeInsideDocument = at + removed <= end;
    QKL_ASSERT(nodeInsideDocument);
    if (!nodeInsideDocument || !move(static_cast<unsigned int>(at + removed), at, end)) return 0;
    return static_cast<unsigned int>(removed);
}

}  // namespace binary
}  // namespace QKL
