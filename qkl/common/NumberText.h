// Decimal text of numbers.
#ifndef QKL_COMMON_NUMBERTEXT_H
#define QKL_COMMON_NUMBERTEXT_H

#include <string>

namespace QKL {

std::string intToStr(int value);                // "-42"
std::string longlongToStr(long long value);     // "-9223372036854775808"
// The shortest decimal text that reads back as exactly the same double with
// sscanf("%lf") / strtod: "0.1", "1e+300", "-0", "inf", "nan".
std::string doubleToStr(double value);

}  // namespace QKL

#endif
