// Owning handles over the raw message API, header-only. Each handle releases
// what it holds the one way the library allows, so the raw rules (messages
// through destroy(), iterators through delete, returned text and bytes through
// free()) are kept by scope:
//   MessagePtr        a message, released with destroy()
//   IteratorPtr       an iterator, deleted (ConstIteratorPtr for a const message's)
//   Buffer            text or bytes the library returned with malloc, freed with free()
// The helpers below make the raw calls and add no allocation or copy of their
// own; the raw API stays as it is. qkl/soap/QKLSoapHandles.h does the same for
// SOAP envelopes.
#ifndef QKL_MESSAGE_QKLHANDLES_H
#define QKL_MESSAGE_QKLHANDLES_H

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"

namespace QKL {

// Releases a message through destroy() (a message is never deleted from outside).
struct MessageDestroyer {
    void operator()(QKLMessage* message) const noexcept { message->destroy(); }
};

using MessagePtr = std::unique_ptr<QKLMessage, MessageDestroyer>;
using IteratorPtr = std::unique_ptr<QKLMessageIterator>;
using ConstIteratorPtr = std::unique_ptr<const QKLMessageIterator>;

// A buffer the library allocated with malloc (text, binary bytes, base64),
// owned alone and freed with free(). size() is the length the library gave:
// a packet's whole length (the text packet of a peer below 40000 counts its
// final NUL), a rendering's text without its NUL.
class Buffer {
public:
    Buffer() noexcept = default;
    // Takes over `data` (malloc'ed, may be null) of `size` bytes.
    Buffer(char* data, std::size_t size) noexcept : m_data(data), m_size(data ? size : 0) {}
    // Takes over a malloc'ed text ended by a NUL (may be null); size() is its strlen.
    static Buffer ofText(char* text) noexcept { return Buffer(text, text ? std::strlen(text) : 0); }
    Buffer(Buffer&& other) noexcept : m_data(other.m_data), m_size(other.m_size) {
        other.m_data = nullptr;
        other.m_size = 0;
    }
    Buffer& operator=(Buffer&& other) noexcept {
        if (this != &other) {
            std::free(m_data);
            m_data = std::exchange(other.m_data, nullptr);
            m_size = std::exchange(other.m_size, 0);
        }
        return *this;
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { std::free(m_data); }

    char* data() const noexcept { return m_data; }
    std::size_t size() const noexcept { return m_size; }
    std::string_view view() const noexcept { return std::string_view(m_data ? m_data : "", m_size); }
    // A text buffer as a C string; "" when the buffer is empty, so printing a
    // failed rendering prints nothing instead of reading a null pointer.
    const char* c_str() const noexcept { return m_data ? m_data : ""; }
    explicit operator bool() const noexcept { return m_data != nullptr; }
    // Gives up ownership: the caller frees the result with free().
    char* release() noexcept {
        m_size = 0;
        return std::exchange(m_data, nullptr);
    }

private:
    char* m_data = nullptr;
    std::size_t m_size = 0;
};

// A new empty message of the default protocol, with no document yet: for
// fromText, deserialize or the SOAP bridge to fill. Null when none can be made.
inline MessagePtr makeMessage() { return MessagePtr(QKLMsgFactory::createNew()); }

// A new message of the default protocol with the root element rootName; null
// when the message or its root cannot be made.
inline MessagePtr makeMessage(const char* rootName) {
    MessagePtr message = makeMessage();
    if (message && message->create(rootName) != 0) message.reset();
    return message;
}

// A message read from a received packet by the default protocol: a binary
// document, or XML text whose final NUL is counted in `length` (the text form
// serialize gives a peer below 40000). Null when the packet is refused, or
// longer than the largest length the library reads (INT_MAX).
inline MessagePtr parse(const char* bytes, std::size_t length) {
    if (length > std::size_t(INT_MAX)) return MessagePtr();
    return MessagePtr(QKLMsgFactory::createNew(bytes, int(length)));
}
inline MessagePtr parse(std::string_view bytes) { return parse(bytes.data(), bytes.size()); }

// The whole message as a packet for a peer of message version peerVersion
// (40500 is this library's own). The lower of the peer's and the message's
// versions chooses the form: 40000 and above, the binary document; below
// 40000, the XML text with its final NUL (counted in size()), which is what
// such a peer reads; 0 therefore gives XML text. Unlike the raw serialize(),
// this saves the header fields held by the caching setters (setID, setUid,
// setSession) first, so the packet carries what toText() shows; saving costs
// nothing when none is pending. An empty Buffer on failure.
inline Buffer serialize(const QKLMessage& msg, int peerVersion = 40500) {
    char* bytes = nullptr;
    int length = 0;
    if (msg.saveChanges() != 0 || msg.serialize(&bytes, &length, nullptr, peerVersion) != 0) return Buffer();
    return Buffer(bytes, std::size_t(length));
}

// The subtree at the iterator's current element as a binary document of its
// own, which deserialize(bytes, length, at) places under an element of another
// message. An empty Buffer on failure.
inline Buffer serialize(const QKLMessageIterator& at) {
    char* bytes = nullptr;
    int length = 0;
    if (at.serializeFromChild(&bytes, &length) != 0) return Buffer();
    return Buffer(bytes, std::size_t(length));
}

// The whole message as XML text; size() is its strlen. An empty Buffer on failure.
inline Buffer toText(const QKLMessage& msg) {
    return Buffer::ofText(msg.toText(nullptr, std::string(), QKLMessageIterator::TEXT_FLAGS));
}

// A new iterator on the message's root.
inline IteratorPtr iterate(QKLMessage& msg) { return IteratorPtr(msg.newIterator()); }
inline ConstIteratorPtr iterate(const QKLMessage& msg) { return ConstIteratorPtr(msg.newIterator()); }

// The children of an iterator's current element, in one pass, visited through
// an iterator of the range's own: the iterator the range was made from stays
// where it was. The range places its iterator on the first child when it is
// made, so it never refers back to the iterator it came from, and
// `children(*QKL::iterate(msg))` is safe; the message must outlive the range.
class Children {
public:
    struct End {};
    class Iterator {
    public:
        explicit Iterator(IteratorPtr child) noexcept : m_child(std::move(child)) {}
        QKLMessageIterator& operator*() const { return *m_child; }
        QKLMessageIterator* operator->() const { return m_child.get(); }
        Iterator& operator++() {
            if (m_child->nextSibling() != 0) m_child.reset();
            return *this;
        }
        bool operator!=(End) const { return m_child != nullptr; }
        bool operator==(End) const { return m_child == nullptr; }

    private:
        IteratorPtr m_child;  // null past the last child
    };

    explicit Children(const QKLMessageIterator& parent) : m_first(parent.newIterator(false)) {
        if (m_first && m_first->firstChild() != 0) m_first.reset();
    }
    // Hands the range's iterator over: a second begin() is at the end.
    Iterator begin() noexcept { return Iterator(std::move(m_first)); }
    End end() const noexcept { return End(); }

private:
    IteratorPtr m_first;
};

inline Children children(const QKLMessageIterator& it) { return Children(it); }

// The value at a name or "/"-path below the iterator's current element ("" is
// that element) read as T (int, long long, double, bool or std::string);
// nullopt when there is no such element or the raw getValue refuses the value.
// The conversions are getValue's: a text read as int goes through strtol, so
// text that is no number reads as 0, not nullopt (long long and double refuse
// it); bool is false for exactly "0", "" and "false".
template <class T>
inline std::optional<T> get(const QKLMessageIterator& it, const std::string& path);

namespace handles_detail {
inline int read(const QKLMessageIterator& it, int& value, const std::string& path) { return it.getValue(value, path); }
inline int read(const QKLMessageIterator& it, bool& value, const std::string& path) { return it.getValue(value, path); }
inline int read(const QKLMessageIterator& it, long long& value, const std::string& path) {
    return it.getValueLongLong(value, path);
}
inline int read(const QKLMessageIterator& it, double& value, const std::string& path) {
    return it.getValueDouble(value, path);
}

template <class T>
inline std::optional<T> number(const QKLMessageIterator& it, const std::string& path) {
    T value{};
    if (read(it, value, path) != 0) return std::nullopt;
    return value;
}

// Read in place and returned as the one named result, so the string is neither copied nor moved.
inline std::optional<std::string> text(const QKLMessageIterator& it, const std::string& path) {
    std::optional<std::string> value(std::in_place);
    if (it.getValue(*value, path) != 0) value.reset();
    return value;
}
}  // namespace handles_detail

template <class T>
inline std::optional<T> get(const QKLMessageIterator& it, const std::string& path) {
    static_assert(std::is_same<T, int>::value || std::is_same<T, long long>::value ||
                      std::is_same<T, double>::value || std::is_same<T, bool>::value ||
                      std::is_same<T, std::string>::value,
                  "QKL::get reads int, long long, double, bool or std::string");
    if constexpr (std::is_same<T, std::string>::value)
        return handles_detail::text(it, path);
    else
        return handles_detail::number<T>(it, path);
}

}  // namespace QKL

#endif
