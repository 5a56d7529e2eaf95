#include "qkl/util/MallocCopy.h"

#include <cstdlib>
#include <cstring>

namespace QKL {
namespace Internal {

char* mallocCopy(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace Internal
}  // namespace QKL
