// TextOut: the XML writer's output, private to qkl/text. One malloc'ed buffer
// that grows as the text does and is handed to the caller as it stands, zero-ended
// ("release with free"), so the finished text is never copied.
#ifndef QKL_TEXT_TEXTOUT_H
#define QKL_TEXT_TEXTOUT_H

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace QKL {
namespace Internal {

class TextOut {
public:
    // An empty text with room for `expected` characters.
    explicit TextOut(size_t expected) { grow(expected); }
    ~TextOut() { std::free(m_text); }
    TextOut(const TextOut&) = delete;
    TextOut& operator=(const TextOut&) = delete;

    const char* data() const { return m_text; }
    size_t size() const { return m_size; }
    char& operator[](size_t at) { return m_text[at]; }

    // Room for `length` more characters behind the text, which commit() then
    // counts in; null when memory runs out (the text is then lost: release gives null).
    char* room(size_t length) {
        if (length >= m_capacity - m_size && !grow(length)) return nullptr;
        return m_text + m_size;
    }
    void commit(size_t length) { m_size += length; }

    void append(const char* text, size_t length) {
        char* const at = room(length);
        if (at == nullptr) return;
        std::memcpy(at, text, length);
        m_size += length;
    }
    void append(char c) {
        char* const at = room(1);
        if (at == nullptr) return;
        *at = c;
        ++m_size;
    }
    // Puts `length` characters in front of the character at `at` (at <= size()).
    void insert(size_t at, const char* text, size_t length) {
        if (room(length) == nullptr) return;
        std::memmove(m_text + at + length, m_text + at, m_size - at);
        std::memcpy(m_text + at, text, length);
        m_size += length;
    }
    // Moves the characters from `from` to the end in front of those from `at` on (at <= from).
    void moveBack(size_t at, size_t from) {
        if (m_text == nullptr) return;
        const std::string moved(m_text + from, m_size - from);
        std::memmove(m_text + at + moved.size(), m_text + at, from - at);
        std::memcpy(m_text + at, moved.data(), moved.size());
    }

    // The text, zero-ended, for the caller to free(); null when memory ran out.
    // The buffer is cut to the text (shrinking keeps its place and its bytes).
    char* release() {
        if (room(0) == nullptr) return nullptr;
        m_text[m_size] = '\0';
        char* const shrunk = static_cast<char*>(std::realloc(m_text, m_size + 1));
        char* const text = shrunk != nullptr ? shrunk : m_text;
        m_text = nullptr;
        m_size = m_capacity = 0;
        return text;
    }

private:
    // Room for `length` more characters and a zero byte; false, dropping the text, when memory runs out.
    bool grow(size_t length) {
        if (m_lost) return false;
        const size_t needed = m_size + length + 1;
        const size_t capacity = std::max(needed, m_capacity * 2);
        char* const text = static_cast<char*>(std::realloc(m_text, capacity));
        if (text == nullptr) {
            std::free(m_text);
            m_text = nullptr;
            m_size = m_capacity = 0;
            m_lost = true;
            return false;
        }
        m_text = text;
        m_capacity = capacity;
        return true;
    }

    char* m_text = nullptr;
    size_t m_size = 0;
    size_t m_capacity = 0;
    bool m_lost = false;
};

}  // namespace Internal
}  // namespace QKL

#endif
