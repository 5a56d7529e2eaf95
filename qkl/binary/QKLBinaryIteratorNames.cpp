// QKLBinaryIterator: names, namespaces, complex types and the
// subtree operations at the current element.
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {

namespace {

// Type codes from this one up carry no namespace prefix (deliberately).
const unsigned short FIRST_TYPE_WITHOUT_NAMESPACE = 32767;
const char* const TYPE_SEPARATOR = ":";

}  // namespace

int QKLBinaryIterator::findOrAssign(const std::string& name, int kind) const {
    static const QKLProtocolIDMap::DefaultLookup DEFAULTS[] = {QKLDefaultMap::findElem, QKLDefaultMap::findNS,
                                                              QKLDefaultMap::findType};
    QKLBinaryInternals* document = internals();
    if (document == nullptr) return 0;
    return document->idMap().findStr(Internal::CharArray(name.data(), unsigned(name.size())), DEFAULTS[kind],
                                     QKLProtocolIDMap::IDType(kind));
}

int QKLBinaryIterator::newChild(const std::string& name) {
    if (validateInternals() != 0) return -1;
    const int id = findOrAssign(name, QKLProtocolIDMap::ELEMENT);
    return id == 0 ? -1 : newChild(id);
}

// ---- namespaces -----------------------------------------------------------------------------------

int QKLBinaryIterator::setNamespace(int nsID) {
    if (validateInternals() != 0) return -1;
    return internals()->setNamespace(m_path, nsID);
}

int QKLBinaryIterator::setNamespace(const std::string& ns) {
    if (ns.empty()) return setNamespace(0);
    if (validateInternals() != 0) return -1;
    const int id = findOrAssign(ns, QKLProtocolIDMap::NAMESPACE);
    return id == 0 ? -1 : internals()->setNamespace(m_path, id);
}

int QKLBinaryIterator::curNamespaceID() const {
    if (validateInternals() != 0) return -1;
    return internals()->curNamespaceID(m_path);
}

void QKLBinaryIterator::saveNamespace(int nsID) {
    if (nsID != 0) {
        m_path.namespaces.push_back(nsID);
    } else if (!m_path.namespaces.empty()) {
        m_path.namespaces.pop_back();
    }
}

void QKLBinaryIterator::saveNamespace(const std::string& ns) {
    if (ns.empty()) return saveNamespace(0);
    if (validateInternals() != 0) return;
    const int id = findOrAssign(ns, QKLProtocolIDMap::NAMESPACE);
    if (id != 0) saveNamespace(id);
}

// ---- complex types --------------------------------------------------------------------------------

int QKLBinaryIterator::getFullTypeName(int nsID, int typeID, std::string& out) const {
    const QKLBinaryInternals* document = internals();
    if (document == nullptr) return -1;
    out.clear();
    if (nsID != 0) {
        const Internal::CharArray ns = document->idMap().findIDC(nsID);
        if (ns.empty()) return -1;
        out.assign(ns.ptr(), ns.length()).append(TYPE_SEPARATOR);
    }
    const Internal::CharArray type = document->idMap().findTypeIDC(typeID);
    if (type.empty()) {
        out.clear();
        return -1;
    }
    out.append(type.ptr(), type.length());
    return 0;
}

int QKLBinaryIterator::setComplexType(const std::string& fullName) {
    if (validateInternals() != 0) return -1;
    const int id = findOrAssign(fullName, QKLProtocolIDMap::TYPE);
    return id == 0 ? -1 : internals()->setComplexType(m_path, id);
}

int QKLBinaryIterator::setComplexType(const std::string& ns, const std::string& type) {
    if (type.empty()) return 0;
    if (ns.empty()) return setComplexType(type);
    if (validateInternals() != 0 || findOrAssign(ns, QKLProtocolIDMap::NAMESPACE) == 0) return -1;
    return setComplexType(ns + TYPE_SEPARATOR + type);
}

int QKLBinaryIterator::setComplexType(int nsID, int typeID) {
    std::string fullName;
    if (getFullTypeName(nsID, typeID, fullName) != 0) return -1;
    return setComplexType(fullName);
}

// ---- names of the current element -----------------------------------------------------------------------

std::string QKLBinaryIterator::curName() const {
    const QKLBinaryInternals* document = internals();
    if (m_path.empty() || document == nullptr) return std::string();
    const Internal::CharArray name = document->idMap().findIDC(m_path.current().tag);
    return std::string(name.ptr(), name.length());
}

std::string QKLBinaryIterator::curType() const {
    const binary::Format::node_range node = current();
    if (node.empty()) return std::string();
    const unsigned short type = node.node().type();
    const int ns = type < FIRST_TYPE_WITHOUT_NAMESPACE ? node.node().ns() : 0;
    std::string name;
    getFullTypeName(ns, type, name);
    return name;
}

// ---- subtrees at the current element ---------------------------------------------------------------------

int QKLBinaryIterator::serializeFromChild(char** buf, int* len) const {
    const QKLMessage* message = getMessage();
    return message ? message->serialize(buf, len, this, TEXT_FLAGS) : -1;
}

int QKLBinaryIterator::deserializeToChild(const char* buf, int len) {
    if (validateInternals() != 0) return -1;
    return getMessage()->deserialize(buf, len, this);
}

char* QKLBinaryIterator::toTextFromChild() const {
    const QKLBinary* message = binaryMessage();
    return message ? message->toText(this, EmptyName) : nullptr;
}

int QKLBinaryIterator::fromTextToChild(const char* text) {
    if (validateInternals() != 0) return -1;
    return getMessage()->fromText(text, this);
}

int QKLBinaryIterator::copyToChild(const QKLMessageIterator* from) {
    if (validateInternals() != 0) return -1;
    return getMessage()->deserialize(from, this);
}

int QKLBinaryIterator::deleteFromChild() {
    if (validateInternals() != 0) return -1;
    return internals()->erase(m_path);
}

}  // namespace QKL
