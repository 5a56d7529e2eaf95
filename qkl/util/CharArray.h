// CharArray: a non-owning view of characters (pointer and unsigned length).
// A missing name is the empty view, never a null pointer: code that builds a
// CharArray from a null pointer gets "" with length 0.
#ifndef QKL_UTIL_CHARARRAY_H
#define QKL_UTIL_CHARARRAY_H

#include <cstring>
#include <string>

namespace QKL {
namespace Internal {

class CharArray {
public:
    static const unsigned int npos = ~0u;

    CharArray() : m_ptr(""), m_len(0) {}
    CharArray(const char* ptr, unsigned int len) : m_ptr(ptr ? ptr : ""), m_len(ptr ? len : 0) {}
    explicit CharArray(const char* text) : m_ptr(text ? text : ""), m_len(text ? unsigned(std::strlen(text)) : 0) {}

    const char* ptr() const { return m_ptr; }
    unsigned int length() const { return m_len; }
    bool empty() const { return m_len == 0; }
    char operator[](unsigned int i) const { return m_ptr[i]; }

    // Position of the first / last occurrence of c, or npos.
    unsigned int find(char c) const {
        const void* hit = std::memchr(m_ptr, c, m_len);
        return hit ? unsigned(static_cast<const char*>(hit) - m_ptr) : npos;
    }
    unsigned int rfind(char c) const {
        for (unsigned int i = m_len; i > 0; --i)
            if (m_ptr[i - 1] == c) return i - 1;
        return npos;
    }

    std::string str() const { return std::string(m_ptr, m_len); }

    friend bool operator==(const CharArray& a, const CharArray& b) {
        return a.m_len == b.m_len && std::memcmp(a.m_ptr, b.m_ptr, a.m_len) == 0;
    }
    friend bool operator!=(const CharArray& a, const CharArray& b) { return !(a == b); }
    // Byte-wise ordering, shorter first on a common prefix (for std::map keys).
    friend bool operator<(const CharArray& a, const CharArray& b) {
        unsigned int n = a.m_len < b.m_len ? a.m_len : b.m_len;
        int c = std::memcmp(a.m_ptr, b.m_ptr, n);
        return c != 0 ? c < 0 : a.m_len < b.m_len;
    }

private:
    const char* m_ptr;
    unsigned int m_len;
};

// The empty name: "" with length 0. Look-ups that find no name return a
// reference to it, never a null pointer.
extern const CharArray nullCharArray;

}  // namespace Internal
}  // namespace QKL

#endif
