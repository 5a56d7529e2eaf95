#include "qkl/text/XmlEntities.h"

#include <cstring>

namespace QKL {
namespace Internal {

namespace {

// The largest Unicode code point; above it a reference names nothing.
const unsigned long LAST_CODE_POINT = 0x10FFFF;

struct NamedEntity {
    const char* name;
    const char* text;
};
// Tried in this order.
const NamedEntity NAMED_ENTITIES[] = {{"lt", "<"}, {"gt", ">"}, {"amp", "&"}, {"apos", "'"}, {"quot", "\""}};

// The digit's value in base 10 or 16, or -1.
int digitValue(char c, bool hex) {
    if (c >= '0' && c <= '9') return c - '0';
    if (!hex) return -1;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string utf8(unsigned long code) {
    std::string out;
    if (code < 0x80) {
        out += char(code);
    } else if (code < 0x800) {
        out += char(0xC0 | (code >> 6));
        out += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += char(0xE0 | (code >> 12));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    } else if (code <= LAST_CODE_POINT) {
        out += char(0xF0 | (code >> 18));
        out += char(0x80 | ((code >> 12) & 0x3F));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    }
    return out;
}

// "#65" or "#x41": the code point as UTF-8; empty without digits or with any other character.
std::string numericReference(const std::string& name) {
    const bool hex = name.size() > 1 && name[1] == 'x';
    std::string::size_type at = hex ? 2 : 1;
    if (at >= name.size()) return std::string();
    const unsigned long base = hex ? 16 : 10;
    unsigned long code = 0;
    for (; at < name.size(); ++at) {
        const int digit = digitValue(name[at], hex);
        if (digit < 0) return std::string();
        // Saturates instead of wrapping: a long run of digits stays too large.
        if (code <= LAST_CODE_POINT) code = code * base + unsigned(digit);
    }
    return utf8(code);
}

}  // namespace

std::string getEntityChar(const std::string& name) {
    if (!name.empty() && name[0] == '#') return numericReference(name);
    for (const NamedEntity& entity : NAMED_ENTITIES) {
        if (name == entity.name) return entity.text;
    }
    return std::string();
}

long long xmlUnescape(const char* begin, const char* end, char* out) {
    char* const start = out;
    for (const char* at = begin; at != end;) {
        const char* amp = at;
        while (amp != end && *amp != '&') ++amp;
        std::memcpy(out, at, size_t(amp - at));
        out += amp - at;
        if (amp == end) break;
        at = amp;
        const char* const semicolon = static_cast<const char*>(std::memchr(at + 1, ';', size_t(end - at - 1)));
        if (semicolon == nullptr) return -1;
        const std::string replacement = getEntityChar(std::string(at + 1, semicolon));
        if (replacement.empty()) return -1;
        std::memcpy(out, replacement.data(), replacement.size());
        out += replacement.size();
        at = semicolon + 1;
    }
    return out - start;
}

}  // namespace Internal
}  // namespace QKL
