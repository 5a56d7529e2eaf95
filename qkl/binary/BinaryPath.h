// BinaryPath: the chain of nodes from the root (first) to the current node
// (last) of a binary document, plus the stack of namespace IDs in force for
// new nodes. Iterators own one; the document buffer edits through it.
// An empty element sequence stands for the position above the root.
#ifndef QKL_BINARY_BINARYPATH_H
#define QKL_BINARY_BINARYPATH_H

#include <vector>

namespace QKL {

class BinaryPath {
public:
    struct Element {
        int tag;              // the node's element ID
        unsigned int offset;  // the node's byte position in the document
    };
    typedef std::vector<Element> Elements;

    // Room for 64 levels up front, so ordinary documents never reallocate.
    static constexpr unsigned int RESERVED_DEPTH = 64;

    BinaryPath() {
        elements.reserve(RESERVED_DEPTH);
        namespaces.reserve(RESERVED_DEPTH);
    }

    bool empty() const { return elements.empty(); }
    unsigned int depth() const { return unsigned(elements.size()); }
    const Element& current() const { return elements.back(); }
    void push(int tag, unsigned int offset) { elements.push_back(Element{tag, offset}); }
    void pop() { elements.pop_back(); }

    // The namespace ID for new nodes: the low 16 bits of the top entry, 0 when none.
    unsigned short currentNamespace() const {
        return namespaces.empty() ? 0 : static_cast<unsigned short>(namespaces.back() & 0xFFFF);
    }

    Elements elements;
    std::vector<int> namespaces;
};

}  // namespace QKL

#endif
