#include "qkl/common/NumberText.h"

#include <charconv>

namespace QKL {
namespace {

template <typename T>
std::string toChars(T value) {
    char buf[64];
    std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, value);
    return std::string(buf, r.ptr);
}

}  // namespace

std::string intToStr(int value) { return toChars(value); }
std::string longlongToStr(long long value) { return toChars(value); }
// std::to_chars without a precision gives the shortest text that round-trips.
std::string doubleToStr(double value) { return toChars(value); }

}  // namespace QKL
