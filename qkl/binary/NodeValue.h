// The value bytes of a node as the iterator's value reads and the XML writer take them.
// Safe on any node: a payload outside the arena reads as no value.
#ifndef QKL_BINARY_NODEVALUE_H
#define QKL_BINARY_NODEVALUE_H

#include <cstring>

#include "qkl/binary/Format.h"
#include "qkl/util/CharArray.h"

namespace QKL {
namespace binary {

// The payload up to its first zero byte (all of it when there is none).
inline Internal::CharArray storedText(const Node& node) {
    const unsigned int size = node.dataSize();
    const char* data = size ? node.data() : nullptr;
    if (data == nullptr) return Internal::CharArray();
    const void* nul = std::memchr(data, 0, size);
    return Internal::CharArray(data, nul ? unsigned(static_cast<const char*>(nul) - data) : size);
}

// A fixed-size number stored as it is in memory; false when the node holds fewer bytes.
template <class T>
bool numberOf(const Node& node, T& value) {
    const char* data = node.data();
    if (data == nullptr || node.dataSize() < sizeof(T)) return false;
    std::memcpy(&value, data, sizeof(T));
    return true;
}

}  // namespace binary
}  // namespace QKL

#endif
