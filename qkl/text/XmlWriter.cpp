// The XML writer: the text form of a QKLBinary document, or of the
// subtree under an iterator. Element names come from the header attribute table
// (tags 200 and below) or the document's ID map; namespaces get the prefixes
// "ns1", "ns2" ... in the order the writer meets them, declared in the first
// start tag; complex types are written as xsi:type. Below message version 40000
// (legacy mode) neither prefixes nor xsi:type nor declarations are written.
//
// The document is walked with binary::Format::node_range and its subtree is
// checked (subtreeValid) before the walk, so no bytes outside the document are
// read and no node is visited twice, whatever the buffer holds.
#include <cstdint>

#include "qkl/binary/Format.h"
#include "qkl/binary/NodeValue.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/Base64.h"
#include "qkl/common/NumberText.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/text/XmlNamespaces.h"
#include "qkl/util/MallocCopy.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

namespace QKL {

namespace {

using binary::Format;
using binary::Node;
using Internal::CharArray;

// The version of the whole-message entries that take none.
const int DEFAULT_TEXT_VERSION = QKLMessageIterator::TEXT_FLAGS;  // 40500
// Namespace prefixes are this text and the map's size + 1: "ns1", "ns2" ...
const char* const PREFIX_STEM = "ns";
const char* const XSI_DECLARATION = " xmlns:xsi=";
const char* const XMLNS_DECLARATION = " xmlns:";
const char* const XSI_TYPE_ATTRIBUTE = " xsi:type=";

// Tags up to this one are header attributes, compared unsigned.
bool isHeaderAttribute(int tag) { return unsigned(tag) <= unsigned(QKLBinaryInternals::LAST_HEADER_TAG); }

std::string textOf(const CharArray& name) { return std::string(name.ptr(), name.length()); }

// The element's name: the header attribute table for tags of 200 and below, the
// ID map above; "INVALID_TAG" when the ID resolves to no name.
CharArray elementName(const QKLProtocolIDMap& map, int tag) {
    if (isHeaderAttribute(tag)) {
        const char* name = QKLBinary::headerAttributeName(tag);
        return name ? CharArray(name) : QKLProtocolIDMap::INVALID_TAG;
    }
    const CharArray name = map.findIDC(tag);
    return name.empty() ? QKLProtocolIDMap::INVALID_TAG : name;
}

void append(std::string& out, const CharArray& text) { out.append(text.ptr(), text.length()); }

// Appends `length` characters, or fewer up to a zero byte, with "<", ">" and "&"
// replaced by their entities (only those, deliberately).
void appendEscaped(std::string& out, const char* text, size_t length) {
    const char* const end = text + length;
    const char* run = text;
    for (; text != end && *text != '\0'; ++text) {
        const char* entity = *text == '<' ? "&lt;" : *text == '>' ? "&gt;" : *text == '&' ? "&amp;" : nullptr;
        if (entity == nullptr) continue;
        out.append(run, size_t(text - run));
        out += entity;
        run = text + 1;
    }
    out.append(run, size_t(text - run));
}

using binary::numberOf;
using binary::storedText;

// Appends a value node's stored text, escaped unless `raw`; nothing for a
// container, for a value too short for its type and for the types that carry no value.
void appendValue(std::string& out, const Node& node, bool raw = false) {
    std::int32_t number = 0;
    long long wide = 0;
    double real = 0;
    std::string text;
    switch (node.type()) {
    case binary::TYPE_ELEMENT:
    case binary::TYPE_STRING:
    case binary::TYPE_TIME:
    case binary::TYPE_XML: {
        const CharArray stored = storedText(node);
        if (raw) {
            append(out, stored);
        } else {
            appendEscaped(out, stored.ptr(), stored.length());
        }
        return;
    }
    case binary::TYPE_INT:
        if (numberOf(node, number)) text = intToStr(number);
        break;
    case binary::TYPE_LONGLONG:
        if (numberOf(node, wide)) text = longlongToStr(wide);
        break;
    case binary::TYPE_DOUBLE:
        if (numberOf(node, real)) text = doubleToStr(real);
        break;
    case binary::TYPE_BASE64: {
        // The raw bytes less the terminating byte that the internals keep, so that
        // getValueBase64 of the text read back gives the bytes that were put.
        const unsigned int size = node.dataSize();
        const char* data = size ? node.data() : nullptr;
        if (data != nullptr) text = Base64::encode(std::string(data, size - 1));
        break;
    }
    default:
        break;
    }
    if (raw) {
        out += text;
    } else {
        appendEscaped(out, text.data(), text.size());
    }
}

// The prefix of a namespace URI, entering a new URI as "ns" + (size + 1).
const std::string& prefixOf(std::map<std::string, std::string>& prefixes, const std::string& uri) {
    std::map<std::string, std::string>::iterator found = prefixes.find(uri);
    if (found != prefixes.end()) return found->second;
    const std::string prefix = PREFIX_STEM + intToStr(int(prefixes.size()) + 1);
    return prefixes.emplace(uri, prefix).first->second;
}

// The element's namespace URI; "" for no namespace. A namespace ID that resolves
// to no name is written as no namespace rather than declared as "INVALID_TAG".
std::string namespaceOf(const QKLProtocolIDMap& map, const Node& node) {
    const unsigned short ns = node.ns();
    return ns == 0 ? std::string() : textOf(map.findIDC(ns));
}

void appendQualified(std::string& out, const std::string& prefix, const CharArray& name) {
    if (!prefix.empty()) {
        out += prefix;
        out += ':';
    }
    append(out, name);
}

// A header attribute goes into its parent's start tag just before the ">" at
// `close`; `close` then moves behind the inserted text, so the attributes stand
// in document order. Its value is written raw, not escaped: the reader stores a
// header attribute's text as it stands, so this is what round-trips.
void insertHeaderAttribute(std::string& out, std::string::size_type& close, const CharArray& name,
                           const Node& node) {
    std::string attribute(1, ' ');
    append(attribute, name);
    attribute += "=\"";
    appendValue(attribute, node, true);
    attribute += '"';
    out.insert(close, attribute);
    close += attribute.size();
}

}  // namespace

// ---- whole-message rendering ----------------------------------------------------------------------

char* QKLBinary::toText(const QKLMessageIterator* at, const std::string& nsBase, int version) const {
    // 1. The cached header fields go into the document first.
    saveChanges();
    if (m_internals == nullptr || m_internals->buffer() == nullptr) return nullptr;
    const Format document = m_internals->format();

    // 2. The start node: the iterator's current node, else the root.
    unsigned int start = binary::HEADER_SIZE;
    if (at != nullptr) {
        const QKLBinaryIterator* own = ownIterator(at);
        if (own == nullptr || own->validateStamp() != 0) return nullptr;
        QKL_ASSERT(!own->path().empty());
        if (own->path().empty()) return nullptr;
        start = own->path().current().offset;
    }
    const Format::node_range node{document.arena(), start, document.beyond(start)};
    if (node.empty() || !node.subtreeValid()) return nullptr;

    // 3.
    std::string out;
    out.reserve(std::string::size_type(node.node().size()) * 2);
    const QKLProtocolIDMap& map = m_internals->idMap();
    map.validate();  // a malformed map area only makes the names "INVALID_TAG"

    // 4. Legacy mode: no prefixes, no xsi:type, no declarations.
    PrefixMap prefixes;
    const bool legacy = version < int(binary::MAP_MSG_VERSION);
    if (writeElement(out, start, 0, version, legacy ? nullptr : &prefixes, nsBase) < 0) return nullptr;

    if (!legacy) {
        // 6. The insertion point: behind the start element's name in the first
        // start tag. The search begins behind "<prefix:" so that a name that is part
        // of its own prefix ("s" in "<ns1:s") is not found there.
        const int tag = node.node().tag();
        const std::string name = isHeaderAttribute(tag) ? std::string() : textOf(elementName(map, tag));
        if (name.empty()) return nullptr;
        std::string::size_type from = 0;
        const std::string uri = namespaceOf(map, node.node());
        const PrefixMap::const_iterator own = uri.empty() ? prefixes.end() : prefixes.find(uri);
        if (own != prefixes.end() && out.compare(0, own->second.size() + 2, "<" + own->second + ":") == 0)
            from = own->second.size() + 2;
        std::string::size_type point = out.find(name, from);
        if (point == std::string::npos) return nullptr;
        point += name.size();

        // 7.
        if (at == nullptr || nsBase.empty())
            out.insert(point, std::string(XSI_DECLARATION) + '"' + XmlSchemaInstance + '"');
        // 8. Each at the same point: later keys stand before earlier ones.
        for (const PrefixMap::value_type& entry : prefixes)
            out.insert(point, XMLNS_DECLARATION + entry.second + "=\"" + entry.first + '"');
    }

    // 9. (Nothing written, as for a header attribute as start node: nothing to print.)
    return out.empty() ? nullptr : Internal::mallocCopy(out);
}

char* QKLBinary::toText(const QKLMessageIterator* at, const std::string& nsBase) const {
    return toText(at, nsBase, DEFAULT_TEXT_VERSION);
}

int QKLBinary::toText(int version, char*& buffer, int& length) const {
    buffer = toText(nullptr, std::string(), version);
    const size_t size = buffer ? std::strlen(buffer) : 0;
    if (buffer == nullptr || size > size_t(INT32_MAX)) {
        std::free(buffer);
        buffer = nullptr;
        length = 0;
        return -1;
    }
    length = int(size);
    return 0;
}

// ---- escaping -------------------------------------------------------------------------------------

std::string QKLBinary::escape(const char* text) {
    std::string out;
    if (text != nullptr) appendEscaped(out, text, std::strlen(text));
    return out;
}

// ---- the element writer ---------------------------------------------------------------------------

int QKLBinary::writeElement(std::string& out, unsigned int at, int level, int flags, PrefixMap* prefixes,
                            const std::string& nsBase) const {
    if (level >= MAX_TEXT_DEPTH || m_internals == nullptr) return -1;
    const Format document = m_internals->format();
    const Format::node_range range{document.arena(), at, document.beyond(at)};
    if (!range.valid()) return -1;
    const Node node = range.node();
    const QKLProtocolIDMap& map = m_internals->idMap();

    // 3. An XML value stands in its own place, without tags and unescaped.
    if (node.type() == binary::TYPE_XML) {
        append(out, storedText(node));
        return 0;
    }
    // 4. A header attribute lives in its parent's start tag, written by the parent
    // (below); as the start node it has no start tag to go into: nothing to print.
    if (isHeaderAttribute(node.tag())) return 0;

    // 1, 2, 5.
    const CharArray name = elementName(map, node.tag());
    std::string prefix;
    if (prefixes != nullptr) {
        const std::string uri = namespaceOf(map, node);
        if (!uri.empty()) prefix = prefixOf(*prefixes, uri);
    }
    out += '<';
    appendQualified(out, prefix, name);

    // 6. Complex type: the full name "URI:local" is split at its last ":".
    if (prefixes != nullptr && node.type() >= binary::TYPE_FIRST_COMPLEX) {
        const CharArray found = map.findTypeIDC(node.type());
        const std::string typeName = found.empty() ? textOf(QKLProtocolIDMap::INVALID_TAG) : textOf(found);
        const std::string::size_type colon = typeName.rfind(':');
        out += XSI_TYPE_ATTRIBUTE;
        out += '"';
        // An empty namespace part (":T") is no namespace: no prefix, never xmlns:nsN="".
        if (colon != std::string::npos && colon != 0) {
            out += prefixOf(*prefixes, typeName.substr(0, colon));
            out += ':';
        }
        out += typeName.substr(colon == std::string::npos ? 0 : colon + 1);
        out += '"';
    }

    // 7.
    std::string::size_type close = out.size();
    out += '>';

    // 8. Content.
    if (node.isContainer()) {
        for (Format::node_range child = range.children(); !child.empty(); child = child.next()) {
            if (!child.valid()) return -1;
            const Node childNode = child.node();
            if (childNode.type() != binary::TYPE_XML && isHeaderAttribute(childNode.tag())) {
                insertHeaderAttribute(out, close, elementName(map, childNode.tag()), childNode);
                continue;
            }
            if (writeElement(out, child.begin, level + 1, flags, prefixes, nsBase) < 0) return -1;
        }
    } else {
        appendValue(out, node);
    }

    // 9. End.
    if (out.size() == close + 1) {
        out[close] = '/';
        out += ">\n";
    } else {
        out += "</";
        appendQualified(out, prefix, name);
        out += ">\n";
    }
    return 0;
}

}  // namespace QKL
