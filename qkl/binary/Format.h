// The binary document format: the byte layout of a document and the
// stateless operations that read and reshape it, in namespace QKL::binary.
//
//   header (8 bytes) | root node with its whole subtree | map area (name entries)
//
// These operations never allocate (except duplicate(at, msgVersion)), never grow
// a buffer and never adjust ancestor sizes: the document buffer (QKLBinaryInternals) does.
//
// Trust model. Received bytes are hostile, so the code is split in two:
//  - SAFE ON UNTRUSTED BYTES (never read or write outside the arena): Arena's
//    accessors, Node's field readers and setters, Node::probe, Format::probe,
//    operator bool, empty, version, beyond, size, root, node_range walking,
//    mapEntryValid and map_type::entryValid. A field that lies outside the arena is reported with
//    QKL_ASSERT (which returns) and reads as 0; a caller that walks untrusted
//    bytes first checks nodes with Node::probe / node_range::valid and so never
//    triggers the assertion.
//  - TRUSTING THE CALLER to have made room first: doInsert, insert, resize,
//    unlink, map_type::insert and map_type::operator=. They are meant for a
//    document the library built or adopted (QKLBinaryInternals grows the buffer
//    first). They still check that every byte they move or write lies inside
//    the arena; when not, they report with QKL_ASSERT and change nothing, so a
//    broken caller corrupts no memory.
//
// Multi-byte fields are in host byte order (little-endian on the platforms
// served) and are read and written with memcpy, so no offset needs alignment.
#ifndef QKL_BINARY_FORMAT_H
#define QKL_BINARY_FORMAT_H

#include <cstdint>
#include <cstring>

#include "qkl/binary/DocumentError.h"
#include "qkl/binary/Limits.h"
#include "qkl/common/QKLAssert.h"

namespace QKL {
namespace binary {

// ---- Document header ----------------------------------------------------------
constexpr std::uint32_t MAGIC = 0xFEDCBA98u;      // bytes 98 BA DC FE when little-endian
constexpr unsigned int HEADER_SIZE = 8;           // the root node starts right behind it
constexpr unsigned int MAGIC_OFFSET = 0;
constexpr unsigned int FLAGS_OFFSET = 4;          // the 32-bit word: empty bit, reserved, map length
constexpr unsigned int VERSION_OFFSET = 7;        // one byte: the format version
constexpr std::uint32_t EMPTY_BIT = 1u;           // bit 0: the document has no root node yet
constexpr unsigned int MAP_LENGTH_SHIFT = 3;      // bits 3-23 hold the map length ...
constexpr std::uint32_t MAP_LENGTH_MASK = (1u << 21) - 1;  // ... 21 bits wide ...
constexpr unsigned int MAP_UNIT = 8;              // ... in units of 8 bytes
static_assert(Limits::MAX_MAP_LENGTH == MAP_LENGTH_MASK * MAP_UNIT, "the map area's limit is its length field");
constexpr unsigned char FORMAT_VERSION = 2;       // every document this system creates
constexpr unsigned char LEGACY_FORMAT_VERSION = 0;  // a duplicate for a peer below MAP_MSG_VERSION
// Message version from which a peer reads the binary document with its map area.
constexpr unsigned int MAP_MSG_VERSION = 40000;
// Format::probe: the bytes are not a binary document.
constexpr unsigned int NOT_BINARY = 0xFFFFFFFFu;

// ---- Node ------------------------------------------------------------------------
constexpr unsigned int TAG_OFFSET = 0;        // int32
constexpr unsigned int TYPE_OFFSET = 4;       // uint16 (in a map entry: the kind of name)
constexpr unsigned int NS_OFFSET = 6;         // uint16
constexpr unsigned int DATA_SIZE_OFFSET = 8;  // uint32
constexpr unsigned int NODE_HEAD = 12;        // the four fields above
constexpr unsigned int NODE_BORDER = 4;       // aligns an 8-byte value or a first child to 8
constexpr unsigned int BORDERED_DATA_SIZE = 8;

// Node types. Types 1-6 and 51 carry a value (read and written in QKLBinaryIteratorValues.cpp).
constexpr unsigned short TYPE_ELEMENT = 0;
constexpr unsigned short TYPE_INT = 1;
constexpr unsigned short TYPE_STRING = 2;
constexpr unsigned short TYPE_LONGLONG = 3;
constexpr unsigned short TYPE_DOUBLE = 4;
constexpr unsigned short TYPE_BASE64 = 5;
constexpr unsigned short TYPE_TIME = 6;
constexpr unsigned short TYPE_CONTAINER = 50;
constexpr unsigned short TYPE_XML = 51;
constexpr unsigned short TYPE_FIRST_COMPLEX = 101;  // 101 and above: a container of that complex type

// Map entries: the kind of name in the type field. A reader rejects an entry
// whose 32-bit word at node offset 4 (type and ns) is negative or >= MAP_KIND_COUNT.
constexpr unsigned short MAP_KIND_ELEMENT = 0;
constexpr unsigned short MAP_KIND_NAMESPACE = 1;
constexpr unsigned short MAP_KIND_TYPE = 2;
constexpr int MAP_KIND_COUNT = 3;

// Only containers hold children.
inline bool isContainer(unsigned short type) {
    return type == TYPE_CONTAINER || type >= TYPE_FIRST_COMPLEX;
}

// 4 when the payload starts at 16 (an 8-byte value or a container), else 0.
inline unsigned int nodeBorder(unsigned short type, unsigned int dataSize) {
    return dataSize == BORDERED_DATA_SIZE || isContainer(type) ? NODE_BORDER : 0;
}

// The size rule (`calculate`) for a given format version. 64-bit, because a
// hostile data size near 2^32 gives a size above 2^32: such a node fits in no
// arena, and Node::probe rejects it instead of wrapping around.
inline std::uint64_t nodeSize(unsigned char formatVersion, unsigned short type, unsigned int dataSize) {
    const std::uint64_t ds = dataSize;
    const std::uint64_t align = ~std::uint64_t(7);
    if (formatVersion == FORMAT_VERSION)
        return nodeBorder(type, dataSize) ? (ds + 23) & align : (ds + 19) & align;
    // The legacy rule always leaves at least one byte behind the payload; kept as it
    // is, since it decides where a legacy document's next sibling is read.
    return (ds + 12) / 8 * 8 + 8;
}

// ---- Arena: a view of a document buffer; owns nothing ----------------------------
class Arena {
public:
    Arena() : m_data(nullptr), m_buffer(nullptr), m_size(0) {}
    // writable is null for a read-only view; otherwise it is the same bytes as readable.
    Arena(const char* readable, char* writable, unsigned int size)
        : m_data(readable), m_buffer(writable), m_size(size) {}
    static Arena readOnlyView(const void* bytes, unsigned int size) {
        return Arena(static_cast<const char*>(bytes), nullptr, size);
    }
    static Arena writableView(void* bytes, unsigned int size) {
        return Arena(static_cast<char*>(bytes), static_cast<char*>(bytes), size);
    }

    const char* start() const { return m_data; }
    char* writableStart() const { return m_buffer; }
    unsigned int size() const { return m_size; }
    bool isSet() const { return m_data != nullptr; }
    bool isWritable() const { return m_buffer != nullptr; }
    // Never widens: a view can only lose bytes.
    void narrow(unsigned int size) {
        if (size < m_size) m_size = size;
    }

    // The accessors: assert that the view is set and offset < size.
    // On failure they report and return null, so a caller must not use the result unchecked.
    const char* data(unsigned int offset) const;
    char* buffer(unsigned int offset) const;  // also null (and reported) on a read-only view

    // Bounds-checked spans, silent: [offset, offset + length) inside the view,
    // computed without overflow; null when not (or when the view is unset or, for
    // writeSpan, read-only). A zero-length span at offset == size is valid.
    // Inline: every field access of every node goes through one of these.
    const char* readSpan(unsigned int offset, std::uint64_t length) const {
        if (m_data == nullptr || std::uint64_t(offset) + length > m_size) return nullptr;
        return m_data + offset;
    }
    char* writeSpan(unsigned int offset, std::uint64_t length) const {
        if (m_buffer == nullptr || std::uint64_t(offset) + length > m_size) return nullptr;
        return m_buffer + offset;
    }

private:
    const char* m_data;
    char* m_buffer;
    unsigned int m_size;
};

// ---- Node: one element or map entry at an offset ---------------------------------
// Readers report (QKL_ASSERT) and return 0 when their field does not lie inside
// the arena. Setters do nothing on a read-only arena (deliberately silent: a
// read-only view is never edited) and report and do nothing when the field
// lies outside the arena.
class Node {
public:
    Node(const Arena& arena, unsigned int at) : m_arena(arena), m_at(at) {}

    const Arena& arena() const { return m_arena; }
    unsigned int offset() const { return m_at; }

    int tag() const;
    void setTag(int tag);
    unsigned short type() const;
    void setType(unsigned short type);
    unsigned short ns() const;
    void setNs(unsigned short ns);
    unsigned int dataSize() const;
    void setDataSize(unsigned int dataSize);

    bool isContainer() const { return binary::isContainer(type()); }
    unsigned int border() const { return nodeBorder(type(), dataSize()); }
    unsigned int overhead() const { return NODE_HEAD + border(); }
    // calculate(type, data size) under the arena's format version (header byte 7).
    // Fits in 32 bits for every node that Node::probe accepts.
    std::uint64_t size() const;

    // The payload [offset + overhead, + dataSize): null (reported) when it does not
    // lie inside the arena; data() is not null-terminated.
    const char* data() const;
    char* buffer() const;

    // Stores a payload. Returns -1 (nonzero) and changes nothing when the arena is
    // read-only, when length > size() - overhead() (the room of the node as it is),
    // or when the payload would leave the arena; else sets the data size to length,
    // copies the bytes to offset + overhead (the overhead of the new data size) and
    // returns 0. With terminate, copies length - 1 bytes and writes a zero as the
    // last byte (length 0 writes nothing). A null `bytes` copies nothing and leaves
    // the payload as it was (the terminating zero is still written). The border
    // before the payload and the padding behind it are zeroed.
    int setData(const void* bytes, unsigned int length, bool terminate);

    // True (bad) unless the whole node, by its own fields, lies inside the arena:
    // the 12 header bytes, then calculate(type, data size). Never reports.
    static bool probe(const Arena& arena, unsigned int at);

private:
    // Zeroes the border and the padding of `node`, the node's nodeBytes writable bytes.
    void clearPadding(char* node, unsigned int start, unsigned int length, std::uint64_t nodeBytes);

    Arena m_arena;
    unsigned int m_at;
};

// ---- Map entries --------------------------------------------------------------------------
// Safe on untrusted bytes: true when the map entry at `at` lies inside the arena
// and inside the area [begin, end) (its size taken under formatVersion), its data
// size is not 0, and the 32-bit word at node offset 4 (type and ns), read as
// signed, is neither negative nor >= MAP_KIND_COUNT (so ns is 0). The version is
// explicit because a foreign map area (QKLProtocolIDMap's decode) is a buffer without a
// document header. Never reports.
bool mapEntryValid(const Arena& arena, unsigned int at, unsigned int begin, unsigned int end,
                   unsigned char formatVersion);

// ---- Format: the document as a whole ------------------------------------------------
class Format {
public:
    // [begin, end): the node at begin, walking siblings up to end; begin >= end is no node.
    // The walking helpers are safe on untrusted bytes: a node that does not fit
    // (Node::probe, or it runs past end) is not valid(), and walking from it yields
    // no node, so a corrupt document ends the walk instead of being read past.
    struct node_range {
        Arena arena;
        unsigned int begin;
        unsigned int end;

        bool empty() const { return begin >= end; }
        Node node() const { return Node(arena, begin); }
        bool valid() const { return size() != 0; }  // a node at begin, whole inside the arena and [begin, end)
        node_range children() const;   // a valid container's child run, else no node
        node_range next() const;       // [begin + size, end) for a valid node, else no node
        // The node's size when valid(), else 0 (no node has size 0).
        std::uint64_t size() const;
        // The run from the first node whose tag is `tag` (from the first node when
        // `anyTag`); no node when none comes before the end or before a node that is not valid().
        node_range find(int tag, bool anyTag) const;
        // valid(), and so is its whole subtree: the children of every container
        // tile its payload exactly. Checks untrusted bytes before a copy relies on
        // the structure; iterative, so any depth is fine.
        bool subtreeValid() const;
    };

    // The map area: a run of name entries behind the tree. Refers back to its Format.
    class map_type {
    public:
        explicit map_type(Format& format) : m_format(&format) {}
        map_type(const map_type&) = default;

        unsigned int offset() const;  // beyond(8): where the map area starts
        unsigned int size() const;    // map length field x 8, in bytes
        // True when an entry of this data size and kind still fits the map length
        // field, that is, the area would stay within Limits::MAX_MAP_LENGTH bytes.
        bool takes(unsigned int dataSize, unsigned short kind) const;
        // Trusting: doInsert of an entry (type = kind, data size given) at offset(),
        // then grows the map length field by its size / 8. The new entry comes first.
        // Returns the entry size; 0, changing nothing, when refused (no room, or the
        // field would pass its 21 bits: a wrapped length would cut the area short).
        unsigned int insert(unsigned int dataSize, unsigned short kind);
        // Trusting: takes the other document's map length field and moves its map
        // bytes to this document's offset(). Refused (reported) when either run
        // leaves its arena.
        map_type& operator=(const map_type& other);

        // Safe on untrusted bytes: mapEntryValid over this document's area
        // [offset(), offset() + size()) under its format version. Walk a map as
        //   for (at = offset(); at != offset() + size(); at += Node(arena, at).size())
        //       if (!entryValid(at)) -> malformed;
        // every step stays inside the area, so the walk ends exactly at its end.
        bool entryValid(unsigned int at) const;
        // Safe on untrusted bytes: every entry of the area is entryValid, so a
        // walk as above ends exactly at the area's end. Never reports.
        bool valid() const;

    private:
        Format* m_format;
    };

    // A view of an existing document (reads nothing yet).
    explicit Format(const Arena& arena) : m_arena(arena), m_map(*this) {}
    // Writes a new header: magic, empty bit set, reserved bits and map length 0,
    // the given format version (FORMAT_VERSION everywhere in this system).
    Format(const Arena& arena, unsigned char version);
    Format(const Format& other) : m_arena(other.m_arena), m_map(*this) {}
    Format& operator=(const Format& other) {
        m_arena = other.m_arena;  // m_map keeps referring to *this
        return *this;
    }

    const Arena& arena() const { return m_arena; }
    map_type& map() { return m_map; }
    const map_type& map() const { return m_map; }

    // True when the first 4 bytes are the magic; false (silently) on a shorter arena.
    explicit operator bool() const;
    bool empty() const;
    unsigned char version() const;
    void setEmpty(bool empty);               // header bit 0; nothing on a read-only arena
    void setVersion(unsigned char version);  // header byte 7; nothing on a read-only arena

    // [8, beyond(8)); an empty range while the document is empty.
    node_range root() const;
    // The end of the tree: `at` while empty, else 8 + root size. A root that does
    // not fit in the arena is taken to fill it (the arena size): nothing behind an
    // unreadable root is trusted, so the map area is then empty of valid entries.
    unsigned int beyond(unsigned int at) const;
    // The document length: size(8, msgVersion).
    unsigned int size(unsigned int msgVersion) const { return size(HEADER_SIZE, msgVersion); }
    // 8 + size of the node at `at` (or 8 when `at` is not below beyond(at)), plus
    // the map bytes when msgVersion >= MAP_MSG_VERSION. Returns 0, which no
    // document has, when the node at `at` does not fit in the arena or the total
    // exceeds 32 bits. (The map area itself may lie past the arena: adoption and
    // probe compare the result with the bytes they hold.)
    unsigned int size(unsigned int at, unsigned int msgVersion) const;
    // The size rule under this document's format version.
    std::uint64_t calculate(unsigned short type, unsigned int dataSize) const {
        return nodeSize(version(), type, dataSize);
    }

    // Trusting (see top). Opens a gap of calculate(type, dataSize) bytes at `at`
    // by moving [at, size(MAP_MSG_VERSION)) up, then writes type and data size;
    // tag, ns, border and payload are left as they were. Returns the gap, 0 when
    // refused (at inside the header or past the document end, no room).
    unsigned int doInsert(unsigned int at, unsigned int dataSize, unsigned short type);
    // doInsert, then clears the empty bit when the document is empty and the type is
    // 0 or a container. Returns [at, beyond(at) + node size), beyond taken before the
    // insertion; an empty range when refused. Ancestors are not adjusted.
    node_range insert(unsigned int at, unsigned int dataSize, unsigned short type);
    // Makes the node at `at` take calculate(type, dataSize) bytes by moving the bytes
    // behind it, then writes type and data size. Returns [at, beyond(at) + new - old
    // size), beyond taken before; an empty range when refused. Ancestors are not adjusted.
    node_range resize(unsigned int at, unsigned int dataSize, unsigned short type);
    // Closes the node's bytes by moving everything behind it down; returns the
    // removed size (0 when refused). Neither ancestors nor the empty bit change.
    unsigned int unlink(unsigned int at);

    // Safe for the source. Returns -1 when the target is read-only, smaller than
    // size(at, msgVersion), or that size is 0 (the node does not fit). Otherwise writes
    // a fresh header (format version 2) into the target; when `at` lies in the tree
    // (below beyond(at)), copies that node with its subtree to target offset 8 and
    // clears the target's empty bit; then copies the map area for msgVersion >=
    // MAP_MSG_VERSION, or sets the target's format version to 0 (no map) below it;
    // narrows the target to the document length and returns 0.
    int duplicate(unsigned int at, Arena& target, unsigned int msgVersion) const;
    // The same into a new buffer of size(at, msgVersion) bytes (malloc), every byte
    // of which the copy writes: header, node and map area tile the document.
    // The caller frees arena.writableStart() with free(); all fields are zero when
    // allocation or duplication fails.
    Arena duplicate(unsigned int at, unsigned int msgVersion) const;

    // Framing of a received stream: 0 when more bytes are needed (fewer than 8, a
    // lone header, a root that does not fit yet, or a document longer than length),
    // NOT_BINARY when the magic is wrong, else the document length (map area
    // included, whatever the message version). Reads no byte outside [bytes, bytes + length).
    static unsigned int probe(const char* bytes, unsigned int length);

    // Why received bytes are refused: the first fault of the header (framing as
    // probe frames it), then of the tree (as root().subtreeValid()), then of the map
    // area (as map().valid()), then the length limit; no error exactly when all of
    // them accept. A separate, slower walk for the refused path only: safe on
    // untrusted bytes, iterative, reads nothing outside [bytes, bytes + length).
    // A fault of the size rule in a document of unknown format version is named
    // as UNKNOWN_FORMAT_VERSION at the version byte (see DocumentError.h).
    static DocumentError diagnose(const char* bytes, unsigned int length);

private:
    std::uint32_t flags() const;
    void setFlags(std::uint32_t flags);
    unsigned int mapLength() const;  // the 21-bit field, in units of MAP_UNIT
    void setMapLength(unsigned int units);
    // Moves [from, end) to `to`; false (reported) when a byte would leave the arena.
    bool move(unsigned int from, std::uint64_t to, unsigned int end);

    Arena m_arena;
    map_type m_map;
};

// ---- Inline definitions: every walk of every document goes through these -------------

// The walk's steps are inlined into every caller, whatever the compiler's size heuristics say.
#if defined(__GNUC__)
#define QKL_HOT_INLINE inline __attribute__((always_inline))
#else
#define QKL_HOT_INLINE inline
#endif

namespace detail {

// A T at node offset `at` + `field`; 0 (reported) when it is not inside the arena.
template <typename T>
inline T readField(const Arena& arena, unsigned int at, unsigned int field) {
    T value = 0;
    const char* node = arena.readSpan(at, std::uint64_t(field) + sizeof(T));
    QKL_ASSERT(node != nullptr);
    if (node) std::memcpy(&value, node + field, sizeof(T));
    return value;
}

}  // namespace detail

inline int Node::tag() const { return detail::readField<std::int32_t>(m_arena, m_at, TAG_OFFSET); }
inline unsigned short Node::type() const { return detail::readField<std::uint16_t>(m_arena, m_at, TYPE_OFFSET); }
inline unsigned short Node::ns() const { return detail::readField<std::uint16_t>(m_arena, m_at, NS_OFFSET); }
inline unsigned int Node::dataSize() const {
    return detail::readField<std::uint32_t>(m_arena, m_at, DATA_SIZE_OFFSET);
}
// Header byte 7 gives the size rule; an arena without a header reads (reported) as the legacy rule.
inline std::uint64_t Node::size() const {
    return nodeSize(detail::readField<unsigned char>(m_arena, 0, VERSION_OFFSET), type(), dataSize());
}
inline const char* Node::data() const {
    const char* head = m_arena.readSpan(m_at, NODE_HEAD);
    std::uint16_t nodeType = 0;
    std::uint32_t nodeDataSize = 0;
    if (head != nullptr) {  // the fields cannot fail: read them straight from the head
        std::memcpy(&nodeType, head + TYPE_OFFSET, sizeof nodeType);
        std::memcpy(&nodeDataSize, head + DATA_SIZE_OFFSET, sizeof nodeDataSize);
    } else {  // each field read reports its failure
        nodeType = type();
        nodeDataSize = dataSize();
    }
    const unsigned int before = NODE_HEAD + nodeBorder(nodeType, nodeDataSize);
    const char* payload = m_arena.readSpan(m_at, std::uint64_t(before) + nodeDataSize);
    QKL_ASSERT(payload != nullptr);
    return payload ? payload + before : nullptr;
}

inline bool Node::probe(const Arena& arena, unsigned int at) {
    if (arena.readSpan(at, NODE_HEAD) == nullptr) return true;
    // The header is inside, so these reads cannot fail (and so never report).
    return arena.readSpan(at, Node(arena, at).size()) == nullptr;
}

// Node::probe and the range's end in one pass over the node's header.
QKL_HOT_INLINE std::uint64_t Format::node_range::size() const {
    const char* head = empty() ? nullptr : arena.readSpan(begin, NODE_HEAD);
    if (head == nullptr) return 0;
    std::uint16_t type = 0;
    std::uint32_t dataSize = 0;
    std::memcpy(&type, head + TYPE_OFFSET, sizeof type);
    std::memcpy(&dataSize, head + DATA_SIZE_OFFSET, sizeof dataSize);
    // The header lies inside (the node's head does), so its version byte can be read.
    const unsigned char rule = static_cast<unsigned char>(arena.start()[VERSION_OFFSET]);
    const std::uint64_t bytes = nodeSize(rule, type, dataSize);
    if (arena.readSpan(begin, bytes) == nullptr) return 0;
    return std::uint64_t(begin) + bytes <= end ? bytes : 0;
}

inline std::uint32_t Format::flags() const { return detail::readField<std::uint32_t>(m_arena, 0, FLAGS_OFFSET); }

inline bool Format::empty() const { return (flags() & EMPTY_BIT) != 0; }

inline unsigned int Format::beyond(unsigned int at) const {
    if (empty()) return at;
    // A root that does not fit would put the tree's end (and the map area) outside
    // the arena; taking the arena's end instead leaves nothing readable behind it.
    const std::uint64_t rootSize = node_range{m_arena, HEADER_SIZE, m_arena.size()}.size();
    return rootSize == 0 ? m_arena.size() : HEADER_SIZE + static_cast<unsigned int>(rootSize);
}

QKL_HOT_INLINE Format::node_range Format::node_range::children() const {
    const node_range none{arena, end, end};
    const std::uint64_t bytes = size();
    if (bytes == 0) return none;
    // The whole node lies inside the arena (size() checked it): its fields are read directly.
    const char* const head = arena.start() + begin;
    std::uint16_t type = 0;
    std::uint32_t dataSize = 0;
    std::memcpy(&type, head + TYPE_OFFSET, sizeof type);
    std::memcpy(&dataSize, head + DATA_SIZE_OFFSET, sizeof dataSize);
    if (!isContainer(type)) return none;
    const unsigned int first = begin + NODE_HEAD + nodeBorder(type, dataSize);
    // A corrupt data size (not a sum of node sizes) must not reach past the parent.
    std::uint64_t last = std::uint64_t(first) + dataSize;
    const std::uint64_t parentEnd = begin + bytes;
    if (last > parentEnd) last = parentEnd;
    return node_range{arena, first, static_cast<unsigned int>(last)};
}

// The walk of size() and next(), with the size rule read once for the whole run.
QKL_HOT_INLINE Format::node_range Format::node_range::find(int tag, bool anyTag) const {
    const node_range none{arena, end, end};
    // Without a whole header no node fits in the arena either.
    const char* header = arena.readSpan(0, HEADER_SIZE);
    if (header == nullptr) return none;
    const unsigned char rule = static_cast<unsigned char>(header[VERSION_OFFSET]);
    for (unsigned int at = begin; at < end;) {
        const char* head = arena.readSpan(at, NODE_HEAD);
        if (head == nullptr) return none;
        std::int32_t nodeTag = 0;
        std::uint16_t type = 0;
        std::uint32_t dataSize = 0;
        std::memcpy(&nodeTag, head + TAG_OFFSET, sizeof nodeTag);
        std::memcpy(&type, head + TYPE_OFFSET, sizeof type);
        std::memcpy(&dataSize, head + DATA_SIZE_OFFSET, sizeof dataSize);
        const std::uint64_t bytes = nodeSize(rule, type, dataSize);
        if (arena.readSpan(at, bytes) == nullptr || at + bytes > end) return none;
        if (anyTag || nodeTag == tag) return node_range{arena, at, end};
        at += static_cast<unsigned int>(bytes);
    }
    return none;
}

inline Format::node_range Format::node_range::next() const {
    const std::uint64_t bytes = size();
    if (bytes == 0) return node_range{arena, end, end};
    return node_range{arena, begin + static_cast<unsigned int>(bytes), end};
}

}  // namespace binary
}  // namespace QKL

#endif
