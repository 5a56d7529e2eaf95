#include "qkl/soap/XmlTagScanner.h"

#include <cstring>

namespace QKL {
namespace Internal {

namespace {

constexpr std::size_t npos = std::string::npos;

// The prefix "xml" is bound by definition, never declared.
const char XML_PREFIX[] = "xml";
const char XML_NAMESPACE[] = "http://www.w3.org/XML/1998/namespace";
const char DEFAULT_DECLARATION[] = "xmlns";
const char PREFIX_DECLARATION[] = "xmlns:";

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool endsName(char c) {
    return isBlank(c) || c == '/' || c == '>' || c == '=' || c == '<' || c == '"' || c == '\'' || c == '\0';
}

bool startsWith(const std::string& text, std::size_t at, const char* head) {
    return text.compare(at, std::strlen(head), head) == 0;
}

}  // namespace

XmlTagScanner::XmlTagScanner(const std::string& text, const NamespaceBindings& outer)
    : m_text(text), m_bindings(outer) {
    if (m_bindings.size() > MaxBindings) fail();
}

bool XmlTagScanner::fail() {
    m_failed = true;
    return false;
}

bool XmlTagScanner::skipPast(const char* terminator) {
    const std::size_t found = m_text.find(terminator, m_at);
    if (found == npos) return fail();
    m_at = found + std::strlen(terminator);
    return true;
}

void XmlTagScanner::skipBlanks() {
    while (m_at < m_text.size() && isBlank(m_text[m_at])) ++m_at;
}

// The offset of the first ":" in `length` characters from `at`, or `length`.
std::size_t XmlTagScanner::colonIn(std::size_t at, std::size_t length) const {
    const void* colon = std::memchr(m_text.data() + at, ':', length);
    return colon != nullptr ? std::size_t(static_cast<const char*>(colon) - (m_text.data() + at)) : length;
}

// A qualified name at m_at: "local" or "prefix:local", neither part empty.
bool XmlTagScanner::readName(std::size_t& length) {
    const std::size_t start = m_at;
    while (m_at < m_text.size() && !endsName(m_text[m_at])) ++m_at;
    length = m_at - start;
    const std::size_t colon = colonIn(start, length);
    if (length == 0 || colon == 0 || colon + 1 == length) return false;
    return colon == length || colonIn(start + colon + 1, length - colon - 1) == length - colon - 1;
}

// The attributes of a start tag up to its "/" or ">", each declaration
// pushed onto the scope.
bool XmlTagScanner::readAttributes() {
    for (;;) {
        const std::size_t before = m_at;
        skipBlanks();
        if (m_at >= m_text.size()) return fail();
        if (m_text[m_at] == '>' || m_text[m_at] == '/') return true;
        const std::size_t name = m_at;
        std::size_t length = 0;
        if (m_at == before || !readName(length)) return fail();
        skipBlanks();
        if (m_at >= m_text.size() || m_text[m_at] != '=') return fail();
        ++m_at;
        skipBlanks();
        if (m_at >= m_text.size() || (m_text[m_at] != '"' && m_text[m_at] != '\'')) return fail();
        const std::size_t value = m_at + 1, close = m_text.find(m_text[m_at], value);
        if (close == npos || std::memchr(m_text.data() + value, '<', close - value) != nullptr) return fail();
        m_at = close + 1;

        const std::string attribute = m_text.substr(name, length);
        std::string prefix;
        if (attribute.compare(0, std::strlen(PREFIX_DECLARATION), PREFIX_DECLARATION) == 0)
            prefix = attribute.substr(std::strlen(PREFIX_DECLARATION));
        else if (attribute != DEFAULT_DECLARATION)
            continue;
        if (m_bindings.size() >= MaxBindings) return fail();
        m_bindings.emplace_back(prefix, m_text.substr(value, close - value));
    }
}

void XmlTagScanner::resolve(XmlTag& tag, std::size_t length) const {
    const std::size_t colon = colonIn(tag.name, length);
    const bool prefixed = colon < length;
    tag.prefix = m_text.substr(tag.name, prefixed ? colon : 0);
    tag.local = m_text.substr(tag.name + (prefixed ? colon + 1 : 0), prefixed ? length - colon - 1 : length);
    if (tag.prefix == XML_PREFIX) {
        tag.uri = XML_NAMESPACE;
        tag.bound = true;
        return;
    }
    for (auto binding = m_bindings.rbegin(); binding != m_bindings.rend(); ++binding) {
        if (binding->first != tag.prefix) continue;
        tag.uri = binding->second;
        tag.bound = true;
        return;
    }
    // No default namespace in scope: the name is in none.
    tag.uri.clear();
    tag.bound = !prefixed;
}

bool XmlTagScanner::readStartTag(XmlTag& tag) {
    m_at = tag.begin + 1;
    tag.name = m_at;
    std::size_t length = 0;
    if (!readName(length) || m_open.size() >= MaxDepth) return fail();
    const Open open = {tag.name, length, m_bindings.size()};
    if (!readAttributes()) return false;
    if (m_text[m_at] == '/') {
        if (m_at + 1 >= m_text.size() || m_text[m_at + 1] != '>') return fail();
        tag.kind = XmlTag::Empty;
        ++m_at;
    } else {
        tag.kind = XmlTag::Start;
    }
    tag.end = ++m_at;
    resolve(tag, length);
    if (tag.kind == XmlTag::Empty)
        m_bindings.resize(open.bindings);
    else
        m_open.push_back(open);
    return true;
}

// An end tag must close the innermost open element, by the same name.
bool XmlTagScanner::readEndTag(XmlTag& tag) {
    m_at = tag.begin + 2;
    tag.name = m_at;
    std::size_t length = 0;
    if (!readName(length)) return fail();
    skipBlanks();
    if (m_at >= m_text.size() || m_text[m_at] != '>' || m_open.empty()) return fail();
    const Open open = m_open.back();
    if (open.length != length || m_text.compare(open.name, length, m_text, tag.name, length) != 0) return fail();
    tag.kind = XmlTag::End;
    tag.end = ++m_at;
    resolve(tag, length);
    m_bindings.resize(open.bindings);
    m_open.pop_back();
    return true;
}

bool XmlTagScanner::next(XmlTag& tag) {
    while (!m_failed) {
        const std::size_t open = m_text.find('<', m_at);
        if (open == npos) {
            m_at = m_text.size();
            return false;
        }
        m_at = open;
        if (startsWith(m_text, open, "<!--")) {
            if (!skipPast("-->")) return false;
        } else if (startsWith(m_text, open, "<![CDATA[")) {
            if (!skipPast("]]>")) return false;
        } else if (startsWith(m_text, open, "<?")) {
            if (!skipPast("?>")) return false;
        } else if (startsWith(m_text, open, "<!")) {
            return fail();  // a document type declaration: none in a SOAP message
        } else {
            tag = XmlTag();
            tag.begin = open;
            return startsWith(m_text, open, "</") ? readEndTag(tag) : readStartTag(tag);
        }
    }
    return false;
}

bool XmlTagScanner::closeElement(const XmlTag& start, XmlTag& last) {
    if (start.kind == XmlTag::Empty) {
        last = start;
        return true;
    }
    const std::size_t depth = m_open.size();
    if (start.kind != XmlTag::Start || depth == 0) return false;
    while (next(last))
        if (last.kind == XmlTag::End && m_open.size() == depth - 1) return true;
    return false;
}

}  // namespace Internal
}  // namespace QKL
