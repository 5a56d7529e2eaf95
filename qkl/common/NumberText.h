// Decimal text of numbers.
#ifndef QKL_COMMON_NUMBERTEXT_H
#define QKL_COMMON_NUMBERTEXT_H

#include <cstddef>
#include <string>

namespace QKL {

std::string intToStr(int value);                // "-42"
std::string longlongToStr(long long value);     // "-9223372036854775808"
// The shortest decimal text that reads back as exactly the same double with
// sscanf("%lf") / strtod: "0.1", "1e+300", "-0", "inf", "nan".
std::string doubleToStr(double value);

// The same texts written at `at`, which has room for NUMBER_TEXT_ROOM characters
// (no zero byte is written); each returns the end of the text.
constexpr std::size_t NUMBER_TEXT_ROOM = 32;
char* writeInt(char* at, int value);
char* writeLongLong(char* at, long long value);
char* writeDouble(char* at, double value);

}  // namespace QKL

#endif
