// Text handed to callers in a malloc buffer, as the message and SOAP interfaces
// promise ("release with free").
#ifndef QKL_UTIL_MALLOCCOPY_H
#define QKL_UTIL_MALLOCCOPY_H

#include <string>

namespace QKL {
namespace Internal {

// A malloc copy of text with a terminating zero byte; null when memory runs out.
char* mallocCopy(const std::string& text);

}  // namespace Internal
}  // namespace QKL

#endif
