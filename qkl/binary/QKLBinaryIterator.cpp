// QKLBinaryIterator: construction, the stamp rule and movement.
#include "qkl/binary/QKLBinaryIterator.h"

#include <cstring>


#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {

using binary::Format;

unsigned int QKLBinaryIterator::Policy = 0;

QKLBinaryIterator::QKLBinaryIterator(QKLBinary* message)
    : QKLMessageIterator(message), m_policy(Policy), m_stamp(STALE_STAMP) {
    const QKLBinaryInternals* document = internals();
    if (document == nullptr) return;
    m_stamp = document->changeCounter();
    if (document->buffer() != nullptr && !document->format().empty()) {
        m_path.push(document->format().root().node().tag(), binary::HEADER_SIZE);
    }
}

QKLBinaryIterator::QKLBinaryIterator(const QKLBinaryIterator* other) : QKLBinaryIterator(*other) {}

QKLBinaryIterator::QKLBinaryIterator(const QKLBinaryIterator& other)
    : QKLMessageIterator(other), m_policy(other.m_policy), m_stamp(other.m_stamp), m_path(other.m_path) {}

QKLBinaryIterator::~QKLBinaryIterator() {}

QKLMessageIterator* QKLBinaryIterator::newIterator(bool withCopy) const {
    QKLBinaryIterator* iterator = new QKLBinaryIterator(*this);
    if (withCopy && getMessage() != nullptr) iterator->setMessage(getMessage()->copy(false));
    return iterator;
}

QKLBinary* QKLBinaryIterator::binaryMessage() const { return static_cast<QKLBinary*>(getMessage()); }

QKLBinaryInternals* QKLBinaryIterator::internals() const {
    const QKLBinary* message = binaryMessage();
    return message ? message->internals() : nullptr;
}

// ---- the stamp rule -------------------------------------------------------------------------

bool QKLBinaryIterator::utility::validate(const Format& document, const BinaryPath& path) {
    Format::node_range range = document.root();
    if (range.empty()) return false;
    for (const BinaryPath::Element& element : path.elements) {
        while (!range.empty() && !(range.valid() && range.node().tag() == element.tag &&
                                   range.begin == element.offset)) {
            range = range.next();
        }
        if (range.empty()) return false;
        // A node that holds no children can only be the last path element.
        if (!range.node().isContainer()) return true;
        range = range.children();
    }
    return true;
}

int QKLBinaryIterator::validateStamp() const {
    const QKLBinary* message = binaryMessage();
    const QKLBinaryInternals* document = message ? message->internals() : nullptr;
    if (document == nullptr) return -1;
    if (m_stamp == document->changeCounter()) return 0;
    // No buffer pointer is cached (every access takes the document's current
    // bytes), so there is nothing to refresh here.
    if (message->iteratorCount() <= 1) return 0;
    if (!m_path.empty()) {
        if (document->buffer() == nullptr || !utility::validate(document->format(), m_path)) return -1;
        m_stamp = document->changeCounter();
        return 0;
    }
    m_stamp = document->changeCounter();
    if (document->buffer() != nullptr && !document->format().empty()) {
        m_path.push(document->format().root().node().tag(), binary::HEADER_SIZE);
    }
    return 0;
}

int QKLBinaryIterator::validateInternals() const {
    if (QKLMessageIterator::validateInternals() != 0) return -1;
    return validateStamp();
}

void QKLBinaryIterator::invalidate() const { m_stamp = STALE_STAMP; }

// ---- nodes around the position ----------------------------------------------------------------

QKL_HOT_INLINE Format::node_range QKLBinaryIterator::currentInTree() const {
    const QKLBinaryInternals* document = internals();
    if (m_path.empty() || document == nullptr || document->buffer() == nullptr) return Format::node_range();
    const Format format = document->format();
    return Format::node_range{format.arena(), m_path.current().offset, format.beyond(binary::HEADER_SIZE)};
}

Format::node_range QKLBinaryIterator::current() const {
    const Format::node_range node = currentInTree();
    return node.valid() ? node : Format::node_range();
}

Format::node_range QKLBinaryIterator::findChild(int id, bool anyTag) const {
    // children() checks the node itself: an invalid one has no children.
    return currentInTree().children().find(id, anyTag);
}

Format::node_range QKLBinaryIterator::findSibling(int id, bool anyTag) const {
    if (m_path.depth() < 2) return Format::node_range();
    const BinaryPath::Element parent = m_path.elements[m_path.depth() - 2];
    const QKLBinaryInternals* document = internals();
    const Format format = document->format();
    const Format::node_range parentNode{format.arena(), parent.offset, format.beyond(binary::HEADER_SIZE)};
    if (!parentNode.valid()) return Format::node_range();
    // The run of siblings from the current node to the end of the parent.
    Format::node_range sibling{format.arena(), m_path.current().offset,
                               parent.offset + unsigned(parentNode.node().size())};
    if (!sibling.valid()) return Format::node_range();
    return sibling.next().find(id, anyTag);
}

// ---- movement -----------------------------------------------------------------------------------

int QKLBinaryIterator::seekRoot() const {
    if (m_path.depth() > 1) m_path.elements.resize(1);
    return validateStamp();
}

int QKLBinaryIterator::seekUp() const {
    if (!m_path.empty()) m_path.pop();
    return 0;
}

int QKLBinaryIterator::seekChild(int id, bool anyTag, bool strictExpansion) const {
    if (m_policy & EXPAND_EMBEDDED) {
        if (parseUnknown() != 0 && strictExpansion) return -1;
    }
    if (validateStamp() != 0) return -1;
    if (id == 0 && !anyTag) return 0;
    QKL_ASSERT(!m_path.empty());
    const Format::node_range child = findChild(id, anyTag);
    if (child.empty()) return -1;
    m_path.push(child.node().tag(), child.begin);
    return 0;
}

int QKLBinaryIterator::seek(int id) const { return seekChild(id, false, false); }

Format::node_range QKLBinaryIterator::valueNode(int id) const {
    if (seekChild(0, false, false) != 0) return Format::node_range();
    if (id == 0) return current();
    QKL_ASSERT(!m_path.empty());
    return findChild(id, false);
}

int QKLBinaryIterator::firstChild(int id) const { return seek(id); }

int QKLBinaryIterator::firstChild() const { return seekChild(0, true, true); }

int QKLBinaryIterator::moveToSibling(int id, bool anyTag) const {
    if (validateStamp() != 0) return -1;
    if (id == 0 && !anyTag) return 0;
    const Format::node_range sibling = findSibling(id, anyTag);
    if (sibling.empty()) return -1;
    m_path.elements.back() = BinaryPath::Element{sibling.node().tag(), sibling.begin};
    return 0;
}

int QKLBinaryIterator::nextSibling(int id) const { return moveToSibling(id, false); }

int QKLBinaryIterator::nextSibling() const { return moveToSibling(0, true); }

int QKLBinaryIterator::elementID(const char* name, std::size_t length) const {
    const QKLBinaryInternals* document = internals();
    if (document == nullptr || length > MAX_SEGMENT_LENGTH) return 0;
    return document->idMap().findStrC(Internal::CharArray(name, unsigned(length)), QKLDefaultMap::findElem);
}

int QKLBinaryIterator::seek(const std::string& path) const {
    if (path.empty()) return seek(0);
    // Taken before the stamp check, which may put an empty position on a new root.
    const unsigned int depth = m_path.depth();
    if (validateStamp() != 0) return -1;
    if (path[0] != '/') return descend(path, 0, depth);
    // An absolute path cuts the position to the root first: a failure restores it whole.
    const BinaryPath kept = m_path;
    if (m_path.depth() > 1) m_path.elements.resize(1);
    if (descend(path, 1, m_path.depth()) == 0) return 0;
    m_path = kept;
    return -1;
}

int QKLBinaryIterator::descend(const std::string& path, std::string::size_type at, unsigned int depth) const {
    while (at < path.size()) {
        const void* found = std::memchr(path.data() + at, '/', path.size() - at);
        const std::string::size_type slash =
            found ? std::string::size_type(static_cast<const char*>(found) - path.data()) : std::string::npos;
        const std::string::size_type end = slash == std::string::npos ? path.size() : slash;
        if (end == at) return 0;  // an empty segment ends the walk ("a//b" stops after "a")
        const int id = elementID(path.data() + at, end - at);
        if (id == 0 || seek(id) != 0) {
            m_path.elements.resize(depth);
            return -1;
        }
        if (slash == std::string::npos) return 0;
        at = slash + 1;
    }
    return 0;
}

int QKLBinaryIterator::firstChild(const std::string& name) const {
    const int id = elementID(name.data(), name.size());
    return id == 0 ? -1 : firstChild(id);
}

int QKLBinaryIterator::nextSibling(const std::string& name) const {
    const int id = elementID(name.data(), name.size());
    return id == 0 ? -1 : nextSibling(id);
}

int QKLBinaryIterator::curID() const {
    QKL_ASSERT(!m_path.empty());
    return m_path.empty() ? 0 : m_path.current().tag;
}

// ---- creating a child ---------------------------------------------------------------------------

int QKLBinaryIterator::newChild(int id) {
    if (validateInternals() != 0) return -1;
    QKL_ASSERT(!m_path.empty());
    const Format::node_range node = current();
    if (node.empty()) return -1;
    QKLBinaryInternals* document = internals();
    if (!node.node().isContainer()) {
        if (node.node().type() != binary::TYPE_ELEMENT) return -1;
        if (node.node().dataSize() != 0) {
            // Deliberately, the plain value is dropped: an element holds text or children.
            if (document->setContent(m_path, binary::TYPE_CONTAINER, nullptr, 0, false) != 0) return -1;
        } else {
            binary::Node(document->arena(), node.begin).setType(binary::TYPE_CONTAINER);
        }
    }
    return document->insert(m_path, id, binary::TYPE_ELEMENT, nullptr, 0, false);
}

// ---- embedded documents ---------------------------------------------------------------------------

int QKLBinaryIterator::parseUnknown() const {
    for (;;) {
        if (validateStamp() != 0) return -1;
        const Format::node_range node = current();
        if (node.empty() || !node.node().isContainer()) return -1;
        const Format::node_range embedded = findChild(0, false);
        if (embedded.empty()) return 0;
        // A message is released through destroy(), never by its destructor alone.
        auto_destroy<QKLBinary> content(new QKLBinary());
        const binary::Node opaque = embedded.node();
        if (opaque.type() != binary::TYPE_XML ||
            content->deserialize(opaque.data(), int(opaque.dataSize()), nullptr) != 0) {
            // The node stays as it is, unless the policy makes that a failure.
            return (m_policy & EMBEDDED_MUST_PARSE) ? -1 : 0;
        }
        if (replaceEmbedded(embedded.begin, *content) != 0) return -1;
    }
}

int QKLBinaryIterator::replaceEmbedded(unsigned int offset, const QKLBinary& content) const {
    // The document is changed here: a shared one is made private first.
    if (validateInternals() != 0) return -1;
    BinaryPath opaque = m_path;
    opaque.push(0, offset);
    if (internals()->erase(opaque) != 0) return -1;
    // The content's root becomes the last child of the current element.
    QKLBinaryInternals* source = content.internals();
    return internals()->copy(source->buffer(), BinaryPath(), source->idMap(), m_path);
}

}  // namespace QKL
