#include "qkl/binary/CopyAssistant.h"

#include <vector>

#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

namespace QKL {
namespace binary {

namespace {

// Namespace and type IDs are stored in 16-bit node fields.
const int LAST_SHORT_ID = 0xFFFF;

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
        // The target's name index holds every kind together: a name it already
        // knows as an element comes back with its (negative) element ID, which
        // the 16-bit field would turn into another namespace.
        if (ns <= 0 || ns > LAST_SHORT_ID) return true;
    }
    if (type < TYPE_FIRST_COMPLEX) return false;
    const Internal::CharArray name = m_sourceMap.findTypeIDC(type);
    if (name.empty()) return true;
    // findStr never consults the type vocabulary, so a default type is looked up first.
    type = QKLDefaultMap::findType(name);
    if (type == 0) type = target.findStr(name, &QKLDefaultMap::findType, QKLProtocolIDMap::TYPE);
    // As for namespaces: an ID that is no 16-bit complex type cannot be written.
    return type < int(TYPE_FIRST_COMPLEX) || type > LAST_SHORT_ID;
}

bool CopyAssistant::insertNode(const Format::node_range& range, BinaryPath& path, bool withPayload) {
    const Node source = range.node();
    int tag = source.tag(), type = source.type(), ns = source.ns();
    if (ascertain(tag, type, ns)) return true;
    const char* payload = withPayload ? source.data() : nullptr;
    const int length = withPayload ? insertLength(source) : 0;
    if (m_target.insert(path, tag, type, payload, length, false) != 0) return true;
    Node copied(m_target.arena(), path.current().offset);
    copied.setNs(static_cast<unsigned short>(ns));
    // insert wrote a zero as the last byte of a base64 value; the source's own
    // last byte is kept, as every payload byte is. Same data size, same node size.
    if (withPayload && type == TYPE_BASE64) copied.setData(payload, source.dataSize(), false);
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
    if (m_buffer == nullptr) return -1;  // no document to copy into yet
    // A copy within one document reads a snapshot: growing the target would move the source.
    std::vector<char> snapshot;
    const char* bytes = source;
    if (origin == this) {
        snapshot.assign(source, source + m_used);
        bytes = snapshot.data();
    }
    const binary::Format sourceDoc(binary::Arena::readOnlyView(bytes, origin->used()));
    // A root whose size disagrees with the bytes held (the rule for adopting a
    // document, QKLBinaryInternals::copy) makes tree and map area overlap or leave a gap: a tree
    // cut short, or map entries read as nodes, would be copied.
    if (!sourceDoc || sourceDoc.size(binary::MAP_MSG_VERSION) != origin->used()) return -1;
    binary::Format::node_range range = sourceDoc.root();
    if (!from.empty()) {
        // A named node that is not there is a failure, not an empty copy; the
        // header and the map area are not in the tree.
        const unsigned int at = from.current().offset;
        if (at < binary::HEADER_SIZE) return -1;
        range = binary::Format::node_range{sourceDoc.arena(), at, sourceDoc.beyond(binary::HEADER_SIZE)};
        if (!range.valid()) return -1;
        range.end = at + unsigned(range.node().size());
    }
    if (range.empty()) return 0;
    if (!range.subtreeValid()) return -1;
    binary::CopyAssistant assistant(sourceMap, *this);
    // Node sizes differ between format versions: a source of another version,
    // older or newer, is rebuilt node by node; only a same-version copy moves bytes as they are.
    return sourceDoc.version() != format().version() ? assistant.deep(range, to) : assistant.shallow(range, to);
}

}  // namespace QKL
