// ignorecase_string: a string type whose comparisons and searches ignore letter case,
// used for all searching in SOAP text, plus case conversion and replace-all.
#ifndef QKL_UTIL_IGNORECASE_H
#define QKL_UTIL_IGNORECASE_H

#include <ctype.h>

#include <cctype>
#include <cstddef>
#include <string>

namespace QKL {

// Character traits that differ from std::char_traits<char> only in
// comparison, so the string keeps the standard storage and operations while
// find, rfind, compare and equality ignore case.
struct ignorecase_traits : std::char_traits<char> {
    static bool eq(char a, char b) { return upper(a) == upper(b); }
    static bool lt(char a, char b) { return upper(a) < upper(b); }

    // The result is the sign at the first difference only (1 / -1), not the
    // difference of the characters.
    static int compare(const char* p, const char* q, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i)
            if (!eq(p[i], q[i])) return lt(p[i], q[i]) ? -1 : 1;
        return 0;
    }

    static const char* find(const char* p, std::size_t n, const char& c) {
        for (std::size_t i = 0; i < n; ++i)
            if (eq(p[i], c)) return p + i;
        return nullptr;
    }

private:
    // toupper of a negative char (bytes >= 0x80) is undefined behaviour. With
    // glibc, the same per-locale table that its toupper reads, without the
    // call: every character of every SOAP search passes through here.
    static int upper(char c) {
#ifdef __GLIBC__
        return (*__ctype_toupper_loc())[static_cast<unsigned char>(c)];
#else
        return std::toupper(static_cast<unsigned char>(c));
#endif
    }
};

typedef std::basic_string<char, ignorecase_traits> ignorecase_string;

// The same characters in the other string type.
inline std::string toStdString(const ignorecase_string& s) { return std::string(s.data(), s.size()); }
inline ignorecase_string toIgnoreCase(const std::string& s) { return ignorecase_string(s.data(), s.size()); }

// Copies of s with every character passed through tolower / toupper.
ignorecase_string toLower(const ignorecase_string& s);
ignorecase_string toUpper(const ignorecase_string& s);

// Replaces, in place, every non-overlapping match of pattern in text by
// replacement, left to right; text inserted by a replacement is never searched
// again ("aa" in "aaa" replaced by "b" gives "ba"). Matching ignores case for
// ignorecase_string and is exact for std::string.
//
// HAZARD: never pass an empty pattern: the call does not return. The empty
// pattern matches at the current position on every step, so the loop never
// ends (it grows text without bound when replacement is non-empty). This is
// kept on purpose and pinned by a test; check before calling.
void srch_repl(ignorecase_string& text, const ignorecase_string& pattern,
               const ignorecase_string& replacement);
void srch_repl(std::string& text, const std::string& pattern, const std::string& replacement);

}  // namespace QKL

#endif
