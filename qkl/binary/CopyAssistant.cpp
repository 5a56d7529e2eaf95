#include "qkl/binary/CopyAssistant.h"

#include <vector>

#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

namespace QKL {
namespace binary {

namespace {

// The payload length to hand to QKLBinaryInternals::insert, which adds the
// terminating byte of a base64 value itself: the source's stored size less that byte.
int insertLength(const Node& node) {
    const unsigned int size = node.dataSize();
    return node.type() == TYPE_BASE64 && size > 0 ? int(size - 1) : int(size);
}

}  // namespace

bool CopyAssistant::ascertain(int& tag, int& type, int& ns) {
    QKLProtocolIDMap& target = m_target.idMap();
    if (tag <= 0 || unsigned(tag) > unsigned(QKLBinaryInternals::LAST_HEADER_TAG)) {
        const Internal::CharArray name = m_sourceMap.findIDC(tag);
        if (name.empty()) return true;
        tag = target.findStr(name, &QKLDefaultMap::findElem, QKLProtocolIDMap::ELEMENT);
        if (tag == 0) return true;
    }
    if (ns != 0) {
        const Internal::CharArray name = m_sourceMap.findIDC(ns);
        if (name.empty()) return true;
        ns = target.findStr(name, &QKLDefaultMap::findNS, QKLProtocolIDMap::NAMESPACE);
        if (ns == 0) return true;
    }
    if (type < TYPE_FIRST_COMPLEX) return false;
    const Internal::CharArray name = m_sourceMap.findTypeIDC(type);
    if (name.empty()) return true;
    // findStr never consults the type vocabulary, so a default type is looked up first.
    type = QKLDefaultMap::findType(name);
    if (type == 0) type = target.findStr(name, &QKLDefaultMap::findType, QKLProtocolIDMap::TYPE);
    return type == 0;
}

bool CopyAssistant::insertNode(const Format::node_range& range, BinaryPath& path, bool withPayload) {
    const Node source = range.node();
    int tag = source.tag(), type = source.type(), ns = source.ns();
    if (ascertain(tag, type, ns)) return true;
    const char* payload = withPayload ? source.data() : nullptr;
    const int length = withPayload ? insertLength(source) : 0;
    if (m_target.insert(path, tag, type, payload, length, false) != 0) return true;
    Node(m_target.arena(), path.current().offset).setNs(static_cast<unsigned short>(ns));
    return false;
}

bool CopyAssistant::insert(const Format::node_range& range, BinaryPath& path) {
    return insertNode(range, path, true);
}

bool CopyAssistant::insertTag(const Format::node_range& range, BinaryPath& path) {
    return insertNode(range, path, false);
}

int CopyAssistant::shallow(const Format::node_range& range, BinaryPath path) {
    if (range.empty()) return 0;
    if (insert(range, path)) return -1;
    const unsigned int copied = path.current().offset;
    if (!Node(m_target.arena(), copied).isContainer()) return 0;
    return rewriteDescendants(copied) ? -1 : 0;
}

// Walks the descendants in document order: a container's first child follows
// its header, anything else is followed by its next node. Sizes do not change,
// so offsets stay good while the target's map area grows behind the tree.
bool CopyAssistant::rewriteDescendants(unsigned int container) {
    const Node parent(m_target.arena(), container);
    const unsigned int end = container + unsigned(parent.size());
    for (unsigned int at = container + parent.overhead(); at < end;) {
        Node node(m_target.arena(), at);
        int tag = node.tag(), type = node.type(), ns = node.ns();
        if (ascertain(tag, type, ns)) return true;
        node = Node(m_target.arena(), at);  // the buffer may have moved
        node.setTag(tag);
        node.setNs(static_cast<unsigned short>(ns));
        node.setType(static_cast<unsigned short>(type));
        at += node.isContainer() ? node.overhead() : unsigned(node.size());
    }
    return false;
}

int CopyAssistant::deep(const Format::node_range& range, BinaryPath path) {
    std::vector<Format::node_range> ranges(1, range);
    while (!ranges.empty()) {
        Format::node_range& top = ranges.back();
        if (top.empty()) {
            ranges.pop_back();
            if (!ranges.empty()) path.pop();  // leaving a container: back to its parent
            continue;
        }
        const Node node = top.node();
        const Format::node_range current = top;
        top.begin += unsigned(node.size());
        if (node.isContainer()) {
            if (insertTag(current, path)) return -1;
            ranges.push_back(current.children());
        } else {
            if (insert(current, path)) return -1;
            path.pop();
        }
    }
    return 0;
}

}  // namespace binary

// ---- QKLBinaryInternals::copy -------------------------------------------------------------------

int QKLBinaryInternals::copy(char* source, const BinaryPath& from, QKLProtocolIDMap& sourceMap,
                             const BinaryPath& to) {
    // The source's length is known only through the document that owns it.
    const QKLBinaryInternals* origin = sourceMap.document();
    QKL_ASSERT(source != nullptr && origin != nullptr && origin->buffer() == source);
    if (source == nullptr || origin == nullptr || origin->buffer() != source) return -1;
    // A copy within one document reads a snapshot: growing the target would move the source.
    std::vector<char> snapshot;
    const char* bytes = source;
    if (origin == this) {
        snapshot.assign(source, source + m_used);
        bytes = snapshot.data();
    }
    const binary::Format sourceDoc(binary::Arena::readOnlyView(bytes, origin->used()));
    binary::Format::node_range range = sourceDoc.root();
    if (!from.empty()) {
        const unsigned int at = from.current().offset;
        range = binary::Format::node_range{sourceDoc.arena(), at, sourceDoc.arena().size()};
        range.end = range.valid() ? at + unsigned(range.node().size()) : at;
    }
    if (range.empty()) return 0;
    if (!range.subtreeValid()) return -1;
    binary::CopyAssistant assistant(sourceMap, *this);
    // Node sizes may differ when the source's size rule is older than ours.
    return sourceDoc.version() < format().version() ? assistant.deep(range, to) : assistant.shallow(range, to);
}

}  // namespace QKL
