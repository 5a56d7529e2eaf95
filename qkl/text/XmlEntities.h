// Character entities of the XML text form, private to qkl/text: the writer's
// escaping and the reader's decoding, kept apart so that XmlWriter.cpp and
// XmlReader.cpp hold the grammar.
#ifndef QKL_TEXT_XMLENTITIES_H
#define QKL_TEXT_XMLENTITIES_H

#include <cstddef>
#include <cstring>
#include <string>

namespace QKL {
namespace Internal {

// An output for appendEscaped straight into a buffer that has room for it.
struct RawOut {
    char* at;
    void append(const char* text, std::size_t length) {
        std::memcpy(at, text, length);
        at += length;
    }
};

// Appends `length` characters, or fewer up to a zero byte, with "<", ">" and "&"
// replaced by their entities (only those, deliberately). `Out` has
// append(const char*, size_t), as std::string, TextOut and RawOut do.
template <class Out>
void appendEscaped(Out& out, const char* text, std::size_t length) {
    const char* end = text + length;
    const char* run = text;
    for (const char* at = text; at != end; ++at) {
        const char c = *at;
        // Every character that needs a look is at most ">".
        if (c > '>') continue;
        const char* entity = c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : nullptr;
        if (entity == nullptr) {
            if (c != '\0') continue;
            end = at;
            break;
        }
        out.append(run, std::size_t(at - run));
        out.append(entity, c == '&' ? 5 : 4);
        run = at + 1;
    }
    out.append(run, std::size_t(end - run));
}

// The text of one entity name (between "&" and ";"): "#" + decimal digits or
// "#x" + hexadecimal digits gives the code point in UTF-8 (1 to 4 bytes, empty
// from 1114112 up); "lt", "gt", "amp", "apos", "quot" give their character;
// anything else gives the empty string.
std::string getEntityChar(const std::string& name);

// Writes [begin, end) to `out` with every "&name;" replaced by getEntityChar(name);
// `out` has room for end - begin characters (no replacement is longer than its
// reference). The length written, or -1 when an "&" has no ";" behind it or names
// nothing. One pass: a text of n entities costs O(length), not O(n x length).
long long xmlUnescape(const char* begin, const char* end, char* out);

}  // namespace Internal
}  // namespace QKL

#endif
