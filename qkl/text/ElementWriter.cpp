#include "qkl/text/ElementWriter.h"

#include <cstring>

#include "qkl/binary/QKLBinary.h"
#include "qkl/common/Base64.h"
#include "qkl/common/NumberText.h"
#include "qkl/text/XmlEntities.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

namespace QKL {
namespace Internal {

using binary::Format;

namespace {

// Namespace prefixes are this text and the map's size + 1: "ns1", "ns2" ...
const char* const PREFIX_STEM = "ns";
const std::string_view XSI_TYPE_ATTRIBUTE = " xsi:type=\"";
// An escaped character takes at most 5 ("&amp;").
const size_t ESCAPED_ROOM = 5;
// "<" and ">", or "/>\n", around the tag texts of a value element.
const size_t ELEMENT_MARKUP = 4;

// Appends a number's decimal text (NumberText.h), written in place.
template <class T>
void appendNumber(TextOut& out, T value, char* (*write)(char*, T)) {
    char* const at = out.room(NUMBER_TEXT_ROOM);
    if (at != nullptr) out.commit(size_t(write(at, value) - at));
}

// The payload up to its first zero byte (all of it when there is none), as binary::storedText.
CharArray storedText(const WalkedNode& node) {
    if (node.dataSize == 0) return CharArray();
    const char* const data = node.payload();
    const void* nul = std::memchr(data, 0, node.dataSize);
    return CharArray(data, nul ? unsigned(static_cast<const char*>(nul) - data) : node.dataSize);
}

// A fixed-size number stored as it is in memory; false when the node holds fewer bytes.
template <class T>
bool numberOf(const WalkedNode& node, T& value) {
    if (node.dataSize < sizeof(T)) return false;
    std::memcpy(&value, node.payload(), sizeof(T));
    return true;
}

// Appends a value node's stored text, escaped unless `raw`; nothing for a
// container, for a value too short for its type and for the types that carry no
// value. Number texts hold no character that needs escaping.
void appendValue(TextOut& out, const WalkedNode& node, bool raw) {
    std::int32_t number = 0;
    long long wide = 0;
    double real = 0;
    switch (node.type) {
    case binary::TYPE_ELEMENT:
    case binary::TYPE_STRING:
    case binary::TYPE_TIME:
    case binary::TYPE_XML: {
        if (raw) {
            const CharArray stored = storedText(node);
            out.append(stored.ptr(), stored.length());
        } else if (node.dataSize != 0) {
            // Escaping stops at the first zero byte, where the stored text ends.
            Internal::appendEscaped(out, node.payload(), node.dataSize);
        }
        return;
    }
    case binary::TYPE_INT:
        if (numberOf(node, number)) appendNumber(out, number, writeInt);
        return;
    case binary::TYPE_LONGLONG:
        if (numberOf(node, wide)) appendNumber(out, wide, writeLongLong);
        return;
    case binary::TYPE_DOUBLE:
        if (numberOf(node, real)) appendNumber(out, real, writeDouble);
        return;
    case binary::TYPE_BASE64: {
        // The raw bytes less the terminating byte that the internals keep, so that
        // getValueBase64 of the text read back gives the bytes that were put.
        if (node.dataSize == 0) return;
        const std::string text = Base64::encode(std::string(node.payload(), node.dataSize - 1));
        if (raw) {
            out.append(text.data(), text.size());
        } else {
            Internal::appendEscaped(out, text.data(), text.size());
        }
        return;
    }
    default:
        return;
    }
}

}  // namespace

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

// The element's namespace URI; empty for no namespace. A namespace ID that resolves
// to no name is written as no namespace rather than declared as "INVALID_TAG".
CharArray namespaceOf(const QKLProtocolIDMap& map, unsigned short ns) {
    return ns == 0 ? CharArray() : map.findIDC(ns);
}


const std::string* ElementWriter::prefixOf(std::string_view uri) {
    const auto found = m_prefixes.find(uri);
    if (found != m_prefixes.end()) return &found->second;
    const std::string prefix = PREFIX_STEM + intToStr(int(m_prefixes.size()) + 1);
    return &m_prefixes.emplace(std::string(uri), prefix).first->second;
}

size_t ElementWriter::keepQualified(const std::string* prefix, const CharArray& name) {
    const size_t start = m_texts.size();
    if (prefix != nullptr) m_texts.append(*prefix).append(1, ':');
    m_texts.append(name.ptr(), name.length());
    return m_texts.size() - start;
}

// Looked up and kept in `slot`.
const ElementWriter::NameSlot& ElementWriter::keepTagTexts(NameSlot& slot, const WalkedNode& head) {
    const CharArray name = elementName(m_map, head.tag);
    const CharArray uri = m_prefixed ? namespaceOf(m_map, head.ns) : CharArray();
    const std::string* const prefix = uri.empty() ? nullptr : prefixOf(viewOf(uri));
    slot = NameSlot{true, head.tag, head.ns, m_texts.size(), 0};
    m_texts += '<';
    slot.length = keepQualified(prefix, name);
    m_texts += "</";
    keepQualified(prefix, name);
    m_texts += ">\n";
    m_texts.append(TAG_COPY, '\0');
    return slot;
}

// A complex type's full name "URI:local" is split at its last ":". An empty
// namespace part (":T") is no namespace: no prefix, never xmlns:nsN="".
const ElementWriter::TypeSlot& ElementWriter::typeText(unsigned short type) {
    TypeSlot& slot = m_types[type % TYPE_SLOTS];
    if (slot.used && slot.type == type) return slot;
    const CharArray found = m_map.findTypeIDC(type);
    const CharArray full = found.empty() ? QKLProtocolIDMap::INVALID_TAG : found;
    const unsigned int colon = full.rfind(':');
    const std::string* prefix = nullptr;
    CharArray local = full;
    if (colon != CharArray::npos) {
        local = CharArray(full.ptr() + colon + 1, full.length() - colon - 1);
        if (colon != 0) prefix = prefixOf(std::string_view(full.ptr(), colon));
    }
    slot = TypeSlot{true, type, m_texts.size(), 0};
    slot.length = keepQualified(prefix, local);
    m_texts.append(TAG_COPY, '\0');
    return slot;
}

int ElementWriter::write(const WalkedNode& node, int level) {
    if (level >= QKLBinary::MAX_TEXT_DEPTH) return -1;

    // An XML value stands in its own place, without tags and unescaped.
    if (node.type == binary::TYPE_XML) {
        const CharArray stored = storedText(node);
        m_out.append(stored.ptr(), stored.length());
        return 0;
    }
    // A header attribute lives in its parent's start tag, written by the parent;
    // as the start node it has no start tag to go into: nothing to print.
    if (isHeaderAttribute(node.tag)) return node.range.subtreeValid() ? 0 : -1;
    const bool takesRootText = level == 0 && !m_rootText.empty();
    if (!binary::isContainer(node.type) && !takesRootText && writeValueElement(node)) return 0;

    // Copied: m_texts may move while the children are written.
    const NameSlot name = tagTexts(node);
    appendTagText(name.at, name.length + 1);
    if (takesRootText) {
        m_out.append(m_rootText.data(), m_rootText.size());
        m_rootTextWritten = true;
    }
    if (m_prefixed && node.type >= binary::TYPE_FIRST_COMPLEX) {
        const TypeSlot& type = typeText(node.type);
        m_out.append(XSI_TYPE_ATTRIBUTE.data(), XSI_TYPE_ATTRIBUTE.size());
        appendTagText(type.at, type.length);
        m_out.append('"');
    }

    // `close`: where the start tag's ">" stands, or stands once it is written.
    size_t close = m_out.size();
    if (binary::isContainer(node.type)) {
        if (writeChildren(node, level, close) != 0) return -1;
    } else {
        m_out.append('>');
        appendValue(m_out, node, false);
    }

    if (close == m_out.size()) {
        m_out.append("/>\n", 3);  // only header attributes: the start tag is still open
    } else if (close + 1 == m_out.size()) {
        m_out[close] = '/';
        m_out.append(">\n", 2);
    } else {
        appendTagText(name.at + name.length + 1, name.length + 4);
    }
    return 0;
}

// The common value elements (numbers, texts of up to QUICK_TEXT bytes) as write()
// writes them, through one reservation and a local cursor; false, writing
// nothing, for every other node.
bool ElementWriter::writeValueElement(const WalkedNode& node) {
    size_t valueRoom = NUMBER_TEXT_ROOM;
    switch (node.type) {
    case binary::TYPE_INT:
    case binary::TYPE_LONGLONG:
    case binary::TYPE_DOUBLE:
        break;
    case binary::TYPE_ELEMENT:
    case binary::TYPE_STRING:
    case binary::TYPE_TIME:
        if (node.dataSize > QUICK_TEXT) return false;
        valueRoom = ESCAPED_ROOM * node.dataSize;
        break;
    default:
        return false;
    }
    // m_texts stays as it is while a value is written.
    const NameSlot& name = tagTexts(node);
    char* const start = m_out.room(2 * (name.length + TAG_COPY) + ELEMENT_MARKUP + valueRoom);
    if (start == nullptr) return true;  // the text is lost already
    char* to = copyTagText(start, name.at, name.length + 1);
    *to++ = '>';
    char* const value = to;
    std::int32_t number = 0;
    long long wide = 0;
    double real = 0;
    if (node.type == binary::TYPE_INT) {
        if (numberOf(node, number)) to = writeInt(to, number);
    } else if (node.type == binary::TYPE_LONGLONG) {
        if (numberOf(node, wide)) to = writeLongLong(to, wide);
    } else if (node.type == binary::TYPE_DOUBLE) {
        if (numberOf(node, real)) to = writeDouble(to, real);
    } else {
        Internal::RawOut raw{to};
        Internal::appendEscaped(raw, node.payload(), node.dataSize);
        to = raw.at;
    }
    if (to == value) {
        to[-1] = '/';
        *to++ = '>';
        *to++ = '\n';
    } else {
        to = copyTagText(to, name.at + name.length + 1, name.length + 4);
    }
    m_out.commit(size_t(to - start));
    return true;
}

// appendTagText at `to`, which has room for length + TAG_COPY characters; the end.
char* ElementWriter::copyTagText(char* to, size_t at, size_t length) const {
    if (length <= TAG_COPY) {
        std::memcpy(to, m_texts.data() + at, TAG_COPY);
    } else {
        std::memcpy(to, m_texts.data() + at, length);
    }
    return to + length;
}

// The start tag stays open while header attributes come first, and is closed
// (">" at `close`) before the first other child.
int ElementWriter::writeChildren(const WalkedNode& node, int level, size_t& close) {
    // A container's payload is exactly its children.
    const unsigned int overhead = node.overhead();
    if (overhead + std::uint64_t(node.dataSize) != node.size) return -1;
    bool closed = false;
    const unsigned int end = node.range.begin + overhead + node.dataSize;
    WalkedNode child;
    for (Format::node_range at{node.range.arena, node.range.begin + overhead, end}; !at.empty();
         at.begin += unsigned(child.size)) {
        if (!walk(at, m_version, child)) return -1;
        if (child.type != binary::TYPE_XML && isHeaderAttribute(child.tag)) {
            if (binary::isContainer(child.type) && !at.subtreeValid()) return -1;
            writeHeaderAttribute(child, closed, close);
            continue;
        }
        if (!closed) {
            close = m_out.size();
            m_out.append('>');
            closed = true;
        }
        if (write(child, level + 1) < 0) return -1;
    }
    return 0;
}

// ` name="value"`: behind the start tag's text, or moved in front of its ">" at
// `close` when content was written already (`close` then moves behind it), so
// the attributes stand in document order. Its value is written raw, not escaped:
// the reader stores a header attribute's text as it stands, so this is what round-trips.
void ElementWriter::writeHeaderAttribute(const WalkedNode& node, bool behindContent, size_t& close) {
    const size_t start = m_out.size();
    const CharArray name = elementName(m_map, node.tag);
    m_out.append(' ');
    m_out.append(name.ptr(), name.length());
    m_out.append("=\"", 2);
    appendValue(m_out, node, true);
    m_out.append('"');
    if (!behindContent) {
        close = m_out.size();
        return;
    }
    m_out.moveBack(close, start);
    close += m_out.size() - start;
}

}  // namespace Internal
}  // namespace QKL
