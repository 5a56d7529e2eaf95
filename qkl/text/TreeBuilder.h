// TreeBuilder: the XML reader's element tree, private to qkl/text. The reader
// meets the nodes in document order, so each one is appended behind the last, in
// the document layout (binary/Format.h), and a container's data size is set when
// it closes: no bytes move while the text is read. finish() then puts the whole
// tree into the document as its root in one insertion.
//
// The names the reader records meanwhile go into the document's map area as
// usual (the tree is still empty there), so the finished document holds the same
// bytes, and every edit succeeds or fails as it does on a document edited node by
// node: the same checks run at the same points, and the buffer's growth is
// followed as that document's would be (Limits.h: a document grown by small edits
// stops at 2^30 bytes).
#ifndef QKL_TEXT_TREEBUILDER_H
#define QKL_TEXT_TREEBUILDER_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QKL {

class QKLBinaryInternals;

class TreeBuilder {
public:
    // `document` is blank: a header and map entries only.
    explicit TreeBuilder(QKLBinaryInternals& document);
    ~TreeBuilder();
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    // Results: 0, or -1 (the parse fails) where the document's own edit would fail.

    // A new element (type 0, no payload) as the last child of the open element or
    // as the root; it is open until close().
    int open(int tag);
    // A value node with `length` bytes and a terminating zero (a header attribute,
    // an XML fragment) as the last child of the open element or as the root.
    int addValue(int tag, unsigned short type, const char* data, std::size_t length);
    // The open element's namespace and complex type (QKLBinaryInternals::setNamespace
    // and setComplexType).
    int setNamespace(int ns);
    int setComplexType(int typeID);
    // Room for the open element's text of at most `length` bytes; null when it cannot
    // take text (a container with children) or the text is too long. The text is then
    // written there and setText(its length) stores it with a terminating zero.
    char* textRoom(std::size_t length);
    int setText(std::size_t length);
    void close();
    // Whether open() fails because the open element takes no child (it holds a value).
    bool refusesChild() const;
    // Follows a growth of the document's map area by `bytes`.
    int mapGrew(unsigned int bytes);

    // Puts the tree into the document as its root; nothing without a root.
    int finish();

private:
    // Appends a node header for `type` and `dataSize` (border and padding zeroed);
    // its offset, or -1 when the document could not have grown for it.
    std::int64_t append(int tag, unsigned short type, unsigned int dataSize);
    // Whether the document, grown node by node and holding `used` bytes, would
    // have room for `bytes` more (QKLBinaryInternals::expand).
    bool grow(std::uint64_t used, std::uint64_t bytes);
    // The open element's child slot: turns an empty plain element into a container.
    int openForChild();
    std::uint64_t documentUsed() const;
    // Makes the tree `size` bytes long; new bytes are not cleared. False when memory runs out.
    bool resize(std::size_t size) {
        if (size > m_room && !makeRoom(size)) return false;
        m_size = size;
        return true;
    }
    bool makeRoom(std::size_t size);
    bool named(int tag);

    QKLBinaryInternals& m_document;
    static const unsigned int NAMED_SLOTS = 32;
    char* m_tree;  // malloc'ed; its first m_size of m_room bytes are the tree
    std::size_t m_size;
    std::size_t m_room;
    std::vector<unsigned int> m_open;  // offsets of the open elements, innermost last
    std::int64_t m_capacity;           // the buffer the document would have
    int m_named[NAMED_SLOTS] = {};     // tags known to have a name (0: none)
};

}  // namespace QKL

#endif
