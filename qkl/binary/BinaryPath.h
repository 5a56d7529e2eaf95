// BinaryPath: the chain of nodes from the root (first) to the current node
// (last) of a binary document, plus the stack of namespace IDs in force for
// new nodes. Iterators own one; the document buffer edits through it.
// An empty element sequence stands for the position above the root.
#ifndef QKL_BINARY_BINARYPATH_H
#define QKL_BINARY_BINARYPATH_H

#include <boost/container/small_vector.hpp>

namespace QKL {

class BinaryPath {
public:
    struct Element {
        int tag;              // the node's element ID
        unsigned int offset;  // the node's byte position in the document
    };
    // Room for this many levels inside the path itself: an iterator on an ordinary
    // document allocates nothing when it is made, copied or moved down.
    static constexpr unsigned int INLINE_DEPTH = 16;
    typedef boost::container::small_vector<Element, INLINE_DEPTH> Elements;

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
    boost::container::small_vector<int, INLINE_DEPTH> namespaces;
};

}  // namespace QKL

#endif
