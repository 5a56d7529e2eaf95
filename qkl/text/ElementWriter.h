// ElementWriter: the XML writer's element walk, private to qkl/text. It writes
// one document's elements, with their values, names and namespace prefixes,
// into a TextOut; XmlWriter.cpp puts the text together around it.
#ifndef QKL_TEXT_ELEMENTWRITER_H
#define QKL_TEXT_ELEMENTWRITER_H

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/text/TextOut.h"
#include "qkl/util/CharArray.h"

namespace QKL {

class QKLProtocolIDMap;

namespace Internal {

// Tags up to this one are header attributes, compared unsigned.
inline bool isHeaderAttribute(int tag) { return unsigned(tag) <= unsigned(QKLBinaryInternals::LAST_HEADER_TAG); }

inline std::string_view viewOf(const CharArray& text) { return std::string_view(text.ptr(), text.length()); }

// The element's name: the header attribute table for tags of 200 and below, the
// ID map above; "INVALID_TAG" when the ID resolves to no name.
CharArray elementName(const QKLProtocolIDMap& map, int tag);

// The element's namespace URI; empty for no namespace. A namespace ID that resolves
// to no name is written as no namespace rather than declared as "INVALID_TAG".
CharArray namespaceOf(const QKLProtocolIDMap& map, unsigned short ns);

// A node that the walk has checked (node_range::valid(): whole inside the arena
// and its range), its header fields read once.
struct WalkedNode {
    binary::Format::node_range range;
    const char* bytes;
    std::uint64_t size;
    int tag;
    unsigned short type;
    unsigned short ns;
    unsigned int dataSize;

    unsigned int overhead() const { return binary::NODE_HEAD + binary::nodeBorder(type, dataSize); }
    // A value's payload lies inside the node under either size rule, so inside the arena.
    const char* payload() const { return bytes + overhead(); }
};

// The node at the start of `range` under the size rule of format `version`; false
// when it is not valid() (the checks of node_range::size(), in one pass).
inline bool walk(const binary::Format::node_range& range, unsigned char version, WalkedNode& node) {
    const char* const head = range.empty() ? nullptr : range.arena.readSpan(range.begin, binary::NODE_HEAD);
    if (head == nullptr) return false;
    node.range = range;
    node.bytes = head;
    std::memcpy(&node.tag, head + binary::TAG_OFFSET, sizeof node.tag);
    std::memcpy(&node.type, head + binary::TYPE_OFFSET, sizeof node.type);
    std::memcpy(&node.ns, head + binary::NS_OFFSET, sizeof node.ns);
    std::memcpy(&node.dataSize, head + binary::DATA_SIZE_OFFSET, sizeof node.dataSize);
    node.size = binary::nodeSize(version, node.type, node.dataSize);
    return std::uint64_t(range.begin) + node.size <= range.end && range.arena.readSpan(range.begin, node.size);
}

// Writes one document's elements. Names and prefixes are looked up once per
// (tag, namespace) and per type and then kept as tag texts: a document does
// not change while it is written, so the same IDs always give the same texts.
class ElementWriter {
public:
    // Without prefixes (legacy mode) no prefixes and no xsi:type are written.
    // `version`: the document's format version, which gives the size rule.
    ElementWriter(TextOut& out, const QKLProtocolIDMap& map, bool prefixes, unsigned char version)
        : m_out(out), m_map(map), m_prefixed(prefixes), m_version(version) {}

    // Appends the element `node` and its subtree; -1 when a node is bad or the
    // nesting passes MAX_TEXT_DEPTH.
    int write(const WalkedNode& node, int level);
    // Text written right behind the start element's name in its start tag, when
    // that element has one (see rootTextWritten): the declarations known before
    // the walk. The text must outlive the writer.
    void setRootText(std::string_view text) { m_rootText = text; }
    bool rootTextWritten() const { return m_rootTextWritten; }
    // Namespace URI -> "ns1", "ns2" ..., in URI order.
    const std::map<std::string, std::string, std::less<>>& prefixes() const { return m_prefixes; }

private:
    static const unsigned int NAME_SLOT_BITS = 7;
    static const unsigned int NAME_SLOTS = 1u << NAME_SLOT_BITS;
    static const unsigned int TYPE_SLOTS = 16;
    static const size_t TAG_COPY = 16;
    // The longest text value that writeValueElement takes.
    static const unsigned int QUICK_TEXT = 256;
    // An element's tag texts in m_texts: "<" qualified name, then "</" qualified name ">\n".
    struct NameSlot {
        bool used;
        int tag;
        unsigned short ns;
        size_t at;
        size_t length;  // of the qualified name
    };
    // A type's qualified name in m_texts.
    struct TypeSlot {
        bool used;
        unsigned short type;
        size_t at;
        size_t length;
    };

    // The prefix of a namespace URI, entering a new URI as "ns" + (size + 1).
    const std::string* prefixOf(std::string_view uri);
    // The tag texts of the node's (tag, namespace). Two slots per key (Fibonacci
    // hashing); a miss takes a free one, else the first.
    const NameSlot& tagTexts(const WalkedNode& head) {
        const unsigned int hash = (unsigned(head.tag) * 2654435761u ^ head.ns * 40503u) >> (32 - NAME_SLOT_BITS);
        NameSlot& first = m_names[hash];
        NameSlot& second = m_names[(hash + 1) % NAME_SLOTS];
        if (first.used && first.tag == head.tag && first.ns == head.ns) return first;
        if (second.used && second.tag == head.tag && second.ns == head.ns) return second;
        return keepTagTexts(first.used && !second.used ? second : first, head);
    }
    const NameSlot& keepTagTexts(NameSlot& slot, const WalkedNode& head);
    const TypeSlot& typeText(unsigned short type);
    // Appends `length` characters of m_texts from `at`. Short texts are copied as
    // a block of TAG_COPY characters, of which `length` count: every entry of
    // m_texts is followed by TAG_COPY zero bytes.
    void appendTagText(size_t at, size_t length) {
        char* const to = m_out.room(length + TAG_COPY);
        if (to == nullptr) return;
        if (length <= TAG_COPY) {
            std::memcpy(to, m_texts.data() + at, TAG_COPY);
        } else {
            std::memcpy(to, m_texts.data() + at, length);
        }
        m_out.commit(length);
    }
    // Appends "prefix:name" (or the name alone) to m_texts; its length.
    size_t keepQualified(const std::string* prefix, const CharArray& name);
    int writeChildren(const WalkedNode& node, int level, size_t& close);
    bool writeValueElement(const WalkedNode& node);
    char* copyTagText(char* to, size_t at, size_t length) const;
    void writeHeaderAttribute(const WalkedNode& node, bool behindContent, size_t& close);

    TextOut& m_out;
    const QKLProtocolIDMap& m_map;
    const bool m_prefixed;
    const unsigned char m_version;
    std::map<std::string, std::string, std::less<>> m_prefixes;
    std::string_view m_rootText;
    bool m_rootTextWritten = false;
    std::string m_texts;
    NameSlot m_names[NAME_SLOTS] = {};
    TypeSlot m_types[TYPE_SLOTS] = {};
};

}  // namespace Internal
}  // namespace QKL

#endif
