// The map area, walking node ranges and duplication.
#include <cstdlib>
#include <cstring>

#include <boost/container/small_vector.hpp>

#include "qkl/binary/Format.h"
#include "qkl/common/QKLAssert.h"

namespace QKL {
namespace binary {

// ---- node_range -------------------------------------------------------------------------

namespace {

// The check behind subtreeValid over the bytes [base, base + rootSize), which lie
// inside the arena: every node's header and bytes inside its parent, and every
// container's children tiling its payload exactly. One template per size rule,
// so the walk does not ask for the rule at every node.
template <unsigned char Rule>
bool tilesExactly(const char* const base, const std::uint64_t rootSize) {
    // The ends of the containers around the current one, innermost last.
    boost::container::small_vector<std::uint64_t, 32> enclosing;
    std::uint64_t at = 0, parentEnd = rootSize;
    // Invariant: at <= parentEnd, since every step stays inside the current parent.
    for (;;) {
        if (at == parentEnd) {
            if (enclosing.empty()) return true;
            parentEnd = enclosing.back();
            enclosing.pop_back();
            continue;
        }
        // A node's header must lie inside its parent before its fields are read.
        if (parentEnd - at < NODE_HEAD) return false;
        std::uint16_t type = 0;
        std::uint32_t dataSize = 0;
        std::memcpy(&type, base + at + TYPE_OFFSET, sizeof type);
        std::memcpy(&dataSize, base + at + DATA_SIZE_OFFSET, sizeof dataSize);
        const std::uint64_t nodeBytes = nodeSize(Rule, type, dataSize);
        if (nodeBytes > parentEnd - at) return false;
        if (!isContainer(type)) {
            at += nodeBytes;
            continue;
        }
        const unsigned int overhead = NODE_HEAD + nodeBorder(type, dataSize);
        if (overhead + std::uint64_t(dataSize) != nodeBytes) return false;
        enclosing.push_back(parentEnd);
        parentEnd = at + nodeBytes;
        at += overhead;
    }
}

}  // namespace

bool Format::node_range::subtreeValid() const {
    const std::uint64_t rootSize = size();
    if (rootSize == 0) return false;
    // size() checked that the whole subtree lies inside the arena.
    const char* const base = arena.readSpan(begin, rootSize);
    const unsigned char version = detail::readField<unsigned char>(arena, 0, VERSION_OFFSET);
    return version == FORMAT_VERSION ? tilesExactly<FORMAT_VERSION>(base, rootSize)
                                     : tilesExactly<LEGACY_FORMAT_VERSION>(base, rootSize);
}

// ---- Map entries ---------------------------------------------------------------------------

bool mapEntryValid(const Arena& arena, unsigned int at, unsigned int begin, unsigned int end,
                   unsigned char formatVersion) {
    const char* head = arena.readSpan(at, NODE_HEAD);
    if (at < begin || head == nullptr) return false;
    const Node entry(arena, at);  // its header is inside: the field reads cannot fail
    const std::uint64_t entrySize = nodeSize(formatVersion, entry.type(), entry.dataSize());
    if (entry.dataSize() == 0 || at + entrySize > end || arena.readSpan(at, entrySize) == nullptr)
        return false;
    // Type and ns read together as one signed word: kinds 0-2 with ns 0 only.
    std::int32_t kindWord = 0;
    std::memcpy(&kindWord, head + TYPE_OFFSET, sizeof kindWord);
    if (kindWord < 0 || kindWord >= MAP_KIND_COUNT) return false;
    // The name's bytes lie inside the entry for every size rule; checked all the same.
    return at + std::uint64_t(entry.overhead()) + entry.dataSize() <= end;
}

// ---- map_type -----------------------------------------------------------------------------

unsigned int Format::map_type::offset() const { return m_format->beyond(HEADER_SIZE); }

unsigned int Format::map_type::size() const { return m_format->mapLength() * MAP_UNIT; }

bool Format::map_type::takes(unsigned int dataSize, unsigned short kind) const {
    return size() + m_format->calculate(kind, dataSize) <= Limits::MAX_MAP_LENGTH;
}

unsigned int Format::map_type::insert(unsigned int dataSize, unsigned short kind) {
    if (!takes(dataSize, kind)) return 0;
    const unsigned int entrySize = m_format->doInsert(offset(), dataSize, kind);
    if (entrySize != 0) m_format->setMapLength(m_format->mapLength() + entrySize / MAP_UNIT);
    return entrySize;
}

Format::map_type& Format::map_type::operator=(const map_type& other) {
    if (this == &other) return *this;
    const unsigned int bytes = other.size();
    const char* source = other.m_format->m_arena.readSpan(other.offset(), bytes);
    char* target = m_format->m_arena.writeSpan(offset(), bytes);
    QKL_ASSERT(source != nullptr && target != nullptr);
    if (source == nullptr || target == nullptr) return *this;
    if (bytes > 0) std::memmove(target, source, bytes);
    m_format->setMapLength(other.m_format->mapLength());
    return *this;
}

bool Format::map_type::entryValid(unsigned int at) const {
    const std::uint64_t end = std::uint64_t(offset()) + size();
    // An end past 32 bits is past every arena, which mapEntryValid checks as well.
    const unsigned int areaEnd = end > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned int>(end);
    return mapEntryValid(m_format->m_arena, at, offset(), areaEnd, m_format->version());
}

bool Format::map_type::valid() const {
    const std::uint64_t end = std::uint64_t(offset()) + size();
    // entryValid keeps each entry inside [offset(), end), so every step lands at or before end.
    for (std::uint64_t at = offset(); at < end; at += Node(m_format->m_arena, unsigned(at)).size()) {
        if (!entryValid(unsigned(at))) return false;
    }
    return true;
}

// ---- duplicate ---------------------------------------------------------------------------

int Format::duplicate(unsigned int at, Arena& target, unsigned int msgVersion) const {
    const unsigned int length = size(at, msgVersion);
    if (!target.isWritable() || length == 0 || target.size() < length) return -1;
    Format copy(target, FORMAT_VERSION);
    if (at < beyond(at)) {  // size() counted the node, and found that it fits
        const std::uint64_t nodeBytes = Node(m_arena, at).size();
        std::memcpy(target.writeSpan(HEADER_SIZE, nodeBytes), m_arena.readSpan(at, nodeBytes), nodeBytes);
        copy.setEmpty(false);
    }
    if (msgVersion >= MAP_MSG_VERSION)
        copy.map() = map();
    else
        copy.setVersion(LEGACY_FORMAT_VERSION);  // an older peer reads the legacy size rule, no map
    target.narrow(length);
    return 0;
}

Arena Format::duplicate(unsigned int at, unsigned int msgVersion) const {
    const unsigned int length = size(at, msgVersion);
    if (length == 0) return Arena();
    void* bytes = std::malloc(length);
    if (bytes == nullptr) return Arena();
    Arena target = Arena::writableView(bytes, length);
    if (duplicate(at, target, msgVersion) != 0) {
        std::free(bytes);
        return Arena();
    }
    return target;
}

}  // namespace binary
}  // namespace QKL
