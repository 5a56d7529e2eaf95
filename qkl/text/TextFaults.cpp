#include "qkl/text/TextFaults.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "qkl/binary/Limits.h"
#include "qkl/text/XmlEntities.h"

namespace QKL {

namespace {

// The names a reason carries are cut to the longest element name.
const std::size_t LONGEST_NAME = Limits::MAX_ELEMENT_NAME_LENGTH;

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

__attribute__((noinline, cold)) int TextFaults::fail(const char* at, const char* reason) {
    if (!m_error) {
        m_error.offset = unsigned(at - m_text);
        m_error.reason = reason;
    }
    return -1;
}

__attribute__((noinline, cold)) int TextFaults::noElement(const char* at, bool markup) {
    if (markup) return fail(at + std::strlen(at), TextError::UNEXPECTED_END);
    if (at[0] != '<') return fail(at, at[0] == '\0' ? TextError::UNEXPECTED_END : TextError::LT_EXPECTED);
    return at[1] == '\0' ? fail(at + 1, TextError::UNEXPECTED_END) : fail(at, TextError::NAME_LENGTH);
}

__attribute__((noinline, cold)) int TextFaults::endTag(const char* at, const char* open, unsigned int length) {
    if (at == nullptr) return fail(m_text + std::strlen(m_text), TextError::UNEXPECTED_END);
    const char* end = at + 2;
    while (*end != '\0' && *end != '>' && *end != '<') ++end;
    if (*end == '\0') return fail(end, TextError::UNEXPECTED_END);
    if (m_error) return -1;
    m_error.found.assign(at + 2, std::min(std::size_t(end - at - 2), LONGEST_NAME));
    m_error.open.assign(open, length);
    return fail(at, TextError::END_TAG_MISMATCH);
}

__attribute__((noinline, cold)) int TextFaults::text(const char* begin, const char* end) {
    while (isWhite(*begin)) ++begin;
    if (end == nullptr) return fail(begin, TextError::HOLDS_VALUE);
    for (const char* amp = begin; (amp = static_cast<const char*>(std::memchr(amp, '&', std::size_t(end - amp))));
         ++amp) {
        const char* const semicolon = static_cast<const char*>(std::memchr(amp + 1, ';', std::size_t(end - amp - 1)));
        if (semicolon == nullptr) return fail(amp, TextError::AMP_WITHOUT_SEMICOLON);
        const std::string name(amp + 1, semicolon);
        if (!Internal::getEntityChar(name).empty()) continue;
        if (!m_error) m_error.found = name.substr(0, LONGEST_NAME);
        return fail(amp, TextError::UNKNOWN_ENTITY);
    }
    return fail(begin, TextError::BEYOND_LIMITS);
}

void TextFaults::place(const char* text, TextError& error) {
    error.line = 1;
    unsigned int lineStart = 0;
    for (unsigned int at = 0; at < error.offset; ++at) {
        if (text[at] == '\n') {
            ++error.line;
            lineStart = at + 1;
        }
    }
    error.column = error.offset - lineStart + 1;
}

}  // namespace QKL
