// Case-insensitive comparison of whole texts.
#ifndef QKL_COMMON_STRINGCOMPARE_H
#define QKL_COMMON_STRINGCOMPARE_H

#include <string>

namespace QKL {

// 0 when a and b are equal ignoring ASCII letter case (embedded NUL bytes count
// as characters), negative when a sorts first, positive when b does.
int compareNoCase(const std::string& a, const std::string& b);

}  // namespace QKL

#endif
