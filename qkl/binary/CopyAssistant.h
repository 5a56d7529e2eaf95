// binary::CopyAssistant: copies an element with its subtree from one
// document into another, rewriting every tag, namespace and complex type
// through the names, since IDs outside the vocabularies are private to each
// document. Owns nothing.
//
// A name missing from the source map, or one that cannot be added to the
// target map, fails the copy; nodes already added stay in the target (there is
// no rollback).
#ifndef QKL_BINARY_COPYASSISTANT_H
#define QKL_BINARY_COPYASSISTANT_H

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"

namespace QKL {

class QKLBinaryInternals;
class QKLProtocolIDMap;

namespace binary {

class CopyAssistant {
public:
    CopyAssistant(QKLProtocolIDMap& sourceMap, QKLBinaryInternals& target)
        : m_sourceMap(sourceMap), m_target(target) {}

    // Rewrites three source IDs into target IDs; true on failure. Tags of the
    // header attributes (1 to 200) are the same in every document and pass as they are.
    bool ascertain(int& tag, int& type, int& ns);
    // Adds the node at range.begin with its payload bytes as the new last child
    // of the path's current node, under rewritten IDs; the new node becomes
    // current. True on failure.
    bool insert(const Format::node_range& range, BinaryPath& path);
    // The same without payload: an empty element.
    bool insertTag(const Format::node_range& range, BinaryPath& path);

    // The two strategies; 0 on success, -1 on failure. The source subtree must
    // have passed node_range::subtreeValid.
    // Byte copy of the whole subtree, then in-place rewriting of every copied node.
    int shallow(const Format::node_range& range, BinaryPath path);
    // Node-by-node rebuild (explicit stack, no recursion): node sizes follow the target's rule.
    int deep(const Format::node_range& range, BinaryPath path);

private:
    bool insertNode(const Format::node_range& range, BinaryPath& path, bool withPayload);
    bool rewriteDescendants(unsigned int container);

    QKLProtocolIDMap& m_sourceMap;
    QKLBinaryInternals& m_target;
};

}  // namespace binary
}  // namespace QKL

#endif
