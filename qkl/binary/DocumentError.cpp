// Format::diagnose: where and why received bytes are refused. It walks what
// the quick checks (probe, node_range::subtreeValid, map_type::valid) walk, in
// the same order of areas, but stops at the first fault with its place.
#include <algorithm>
#include <cstring>
#include <vector>

#include "qkl/binary/Format.h"

namespace QKL {
namespace binary {

namespace {

using Error = DocumentError;

// The faults that come from the size rule, which a document of unknown format
// version is read under without saying which rule its sender used.
bool sizeRuleFault(const char* reason) {
    for (const char* sizeRule :
         {Error::NODE_PAST_END, Error::CHILD_PAST_PARENT, Error::SIZES_DO_NOT_ADD_UP, Error::MAP_ENTRY_PAST_AREA})
        if (std::strcmp(reason, sizeRule) == 0) return true;
    return false;
}

// The first node in document order of the tree [HEADER_SIZE, treeEnd), which
// lies inside the arena, that leaves its parent or whose children cannot tile it.
Error treeFault(const Arena& arena, std::uint64_t treeEnd, unsigned char rule) {
    std::vector<std::uint64_t> enclosing;  // the ends of the containers around the current one
    std::uint64_t at = HEADER_SIZE, parentEnd = treeEnd;
    for (;;) {
        if (at == parentEnd) {
            if (enclosing.empty()) return Error();
            parentEnd = enclosing.back();
            enclosing.pop_back();
            continue;
        }
        const unsigned int offset = static_cast<unsigned int>(at);
        if (parentEnd - at < NODE_HEAD) return Error{offset, Error::CHILD_PAST_PARENT};
        const Node node(arena, offset);  // its header lies inside the parent, so inside the arena
        const std::uint64_t bytes = nodeSize(rule, node.type(), node.dataSize());
        if (bytes > parentEnd - at) return Error{offset, Error::CHILD_PAST_PARENT};
        if (!node.isContainer()) {
            at += bytes;
            continue;
        }
        if (node.overhead() + std::uint64_t(node.dataSize()) != bytes) return Error{offset, Error::SIZES_DO_NOT_ADD_UP};
        enclosing.push_back(parentEnd);
        parentEnd = at + bytes;
        at += node.overhead();
    }
}

// The first malformed entry of the map area [begin, end), which lies inside the arena.
Error mapFault(const Arena& arena, std::uint64_t begin, std::uint64_t end, unsigned char rule) {
    for (std::uint64_t at = begin; at < end;) {
        const unsigned int offset = static_cast<unsigned int>(at);
        if (end - at < NODE_HEAD) return Error{offset, Error::MAP_ENTRY_PAST_AREA};
        // The fields first: a wrong kind also changes the size (a kind of 101 or
        // more reads as a container, with a border), so it is the likelier fault.
        const Node entry(arena, offset);
        if (entry.dataSize() == 0) return Error{offset, Error::MAP_ENTRY_ZERO_SIZE};
        if (entry.ns() != 0) return Error{offset, Error::MAP_ENTRY_NONZERO_NS};
        if (entry.type() >= MAP_KIND_COUNT) return Error{offset, Error::MAP_ENTRY_UNKNOWN_KIND};
        const std::uint64_t bytes = nodeSize(rule, entry.type(), entry.dataSize());
        if (bytes > end - at) return Error{offset, Error::MAP_ENTRY_PAST_AREA};
        at += bytes;
    }
    return Error();
}

// The first fault of bytes that hold at least a header beginning with the magic.
Error firstFault(const Arena& arena) {
    const Format document(arena);
    const unsigned char rule = document.version();
    const bool rootFits = !Node::probe(arena, HEADER_SIZE);
    std::uint64_t treeEnd = HEADER_SIZE;
    if (!document.empty()) {
        if (!rootFits) return Error{HEADER_SIZE, Error::NODE_PAST_END};
        treeEnd += Node(arena, HEADER_SIZE).size();
        const Error tree = treeFault(arena, treeEnd, rule);
        if (tree) return tree;
    }
    const std::uint64_t mapEnd = treeEnd + document.map().size();
    if (mapEnd > arena.size()) return Error{FLAGS_OFFSET, Error::MAP_LENGTH_PAST_END};
    const Error map = mapFault(arena, treeEnd, mapEnd, rule);
    if (map) return map;
    // Framing reads a node at offset 8 even in a document without a root; with
    // a map area that node is its first entry, which fits by now.
    if (!rootFits)
        return arena.size() == HEADER_SIZE ? Error{0, Error::LONE_HEADER} : Error{HEADER_SIZE, Error::NODE_PAST_END};
    if (mapEnd > Limits::MAX_RECEIVED_LENGTH) return Error{0, Error::LONGER_THAN_LIMIT};
    return Error();
}

}  // namespace

DocumentError Format::diagnose(const char* bytes, unsigned int length) {
    const std::size_t magicBytes = std::min<std::size_t>(length, sizeof MAGIC);
    if (bytes == nullptr || std::memcmp(bytes, &MAGIC, magicBytes) != 0) return Error{0, Error::NOT_BINARY};
    if (length < HEADER_SIZE) return Error{0, Error::SHORTER_THAN_HEADER};
    const Arena arena = Arena::readOnlyView(bytes, length);
    const Error fault = firstFault(arena);
    const unsigned char version = Format(arena).version();
    const bool knownRule = version == FORMAT_VERSION || version == LEGACY_FORMAT_VERSION;
    if (fault && !knownRule && sizeRuleFault(fault.reason)) return Error{VERSION_OFFSET, Error::UNKNOWN_FORMAT_VERSION};
    return fault;
}

}  // namespace binary
}  // namespace QKL
