// Arena, Node and the size rule. Every field access goes through
// a bounds-checked span of the arena, in 64-bit arithmetic, so a hostile offset
// or data size can neither wrap around nor reach outside the buffer.
#include "qkl/binary/Format.h"

#include <cstring>

#include "qkl/common/QKLAssert.h"

namespace QKL {
namespace binary {

namespace {

// Writes a T at node offset `at` + `field`. Silent on a read-only arena (a read-only
// view is never edited); reported when the field is outside a writable arena.
template <typename T>
void writeField(const Arena& arena, unsigned int at, unsigned int field, T value) {
    if (!arena.isWritable()) return;
    char* node = arena.writeSpan(at, std::uint64_t(field) + sizeof(T));
    QKL_ASSERT(node != nullptr);
    if (node) std::memcpy(node + field, &value, sizeof(T));
}

}  // namespace

// ---- Arena ----------------------------------------------------------------------------

const char* Arena::data(unsigned int offset) const {
    QKL_ASSERT(m_data != nullptr && offset < m_size);
    return m_data != nullptr && offset < m_size ? m_data + offset : nullptr;
}

char* Arena::buffer(unsigned int offset) const {
    QKL_ASSERT(m_buffer != nullptr && offset < m_size);
    return m_buffer != nullptr && offset < m_size ? m_buffer + offset : nullptr;
}

// ---- Node -------------------------------------------------------------------------------

void Node::setTag(int tag) { writeField<std::int32_t>(m_arena, m_at, TAG_OFFSET, tag); }

void Node::setType(unsigned short type) { writeField<std::uint16_t>(m_arena, m_at, TYPE_OFFSET, type); }

void Node::setNs(unsigned short ns) { writeField<std::uint16_t>(m_arena, m_at, NS_OFFSET, ns); }

void Node::setDataSize(unsigned int dataSize) {
    writeField<std::uint32_t>(m_arena, m_at, DATA_SIZE_OFFSET, dataSize);
}


char* Node::buffer() const {
    char* payload = m_arena.writeSpan(m_at, std::uint64_t(overhead()) + dataSize());
    QKL_ASSERT(payload != nullptr);
    return payload ? payload + overhead() : nullptr;
}

int Node::setData(const void* bytes, unsigned int length, bool terminate) {
    if (!m_arena.isWritable()) return -1;
    // The node's own header must be inside before its fields mean anything.
    char* head = m_arena.writeSpan(m_at, NODE_HEAD);
    QKL_ASSERT(head != nullptr);
    if (head == nullptr) return -1;
    std::uint16_t nodeType = 0;
    std::uint32_t oldDataSize = 0;
    std::memcpy(&nodeType, head + TYPE_OFFSET, sizeof nodeType);
    std::memcpy(&oldDataSize, head + DATA_SIZE_OFFSET, sizeof oldDataSize);
    // The head lies inside, so the document header does too.
    const unsigned char rule = static_cast<unsigned char>(m_arena.start()[VERSION_OFFSET]);
    const std::uint64_t room = nodeSize(rule, nodeType, oldDataSize) - (NODE_HEAD + nodeBorder(nodeType, oldDataSize));
    if (length > room) return -1;
    // The payload starts where the new data size puts it (an 8-byte value moves to 16).
    const unsigned int start = NODE_HEAD + nodeBorder(nodeType, length);
    char* node = m_arena.writeSpan(m_at, std::uint64_t(start) + length);
    if (node == nullptr) return -1;
    std::memcpy(node + DATA_SIZE_OFFSET, &length, sizeof length);
    const unsigned int copied = terminate && length > 0 ? length - 1 : length;
    if (bytes != nullptr && copied > 0) std::memcpy(node + start, bytes, copied);
    if (terminate && length > 0) node[start + length - 1] = '\0';
    const std::uint64_t newSize = nodeSize(rule, nodeType, length);
    if (m_arena.writeSpan(m_at, newSize) != nullptr) clearPadding(node, start, length, newSize);
    return 0;
}

// The border before the payload and the padding behind it hold whatever the
// buffer held (growth does not clear, edits leave old bytes): zero them, so
// that no stale or uninitialised memory goes out with the document.
void Node::clearPadding(char* node, unsigned int start, unsigned int length, std::uint64_t nodeBytes) {
    std::memset(node + NODE_HEAD, 0, start - NODE_HEAD);
    const std::uint64_t end = std::uint64_t(start) + length;
    if (nodeBytes > end) std::memset(node + end, 0, size_t(nodeBytes - end));
}

}  // namespace binary
}  // namespace QKL
