#include "qkl/common/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace QKL {
namespace {

// Decimals of up to 15 significant digits: each reads back as a double of its
// own, so when a double's exact value is such a decimal, its digits are the
// shortest that read back as it.
const std::uint64_t SHORT_DECIMAL_LIMIT = 1000000000000000ull;  // 10^15
const int MANTISSA_BITS = 52;
const int EXPONENT_BIAS = 1075;  // value = mantissa x 2^(exponent field - bias)

// A positive finite double whose exact value is digits x 10^exponent with at most
// 15 digits, trailing zeros taken off; false for every other double.
bool exactShortDecimal(double value, std::uint64_t& digits, int& exponent) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int field = int(bits >> MANTISSA_BITS) & 0x7FF;
    if (field == 0 || field == 0x7FF) return false;  // zero, subnormal, inf, nan
    std::uint64_t mantissa = (bits & ((1ull << MANTISSA_BITS) - 1)) | (1ull << MANTISSA_BITS);
    int power = field - EXPONENT_BIAS;  // value = mantissa x 2^power
    const int trailingZeros = __builtin_ctzll(mantissa);  // mantissa is not 0
    mantissa >>= trailingZeros;
    power += trailingZeros;
    exponent = 0;
    if (power >= 0) {
        if (power > 50 || mantissa >= (SHORT_DECIMAL_LIMIT >> power)) return false;
        digits = mantissa << power;
        while (digits % 10 == 0) {
            digits /= 10;
            ++exponent;
        }
        return true;
    }
    // mantissa / 2^n = mantissa x 5^n / 10^n, and mantissa x 5^n (odd) ends in no zero.
    for (digits = mantissa; power < 0; ++power, --exponent) {
        if (digits >= SHORT_DECIMAL_LIMIT / 5) return false;
        digits *= 5;
    }
    return true;
}

const char DIGIT_PAIRS[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
const int LONGEST_UNSIGNED = 20;  // 18446744073709551615

// The decimal digits of `number` at `at` (room for 20); the end of the text.
char* writeUnsigned(char* at, std::uint64_t number) {
    // Written from the back to end at text[LONGEST_UNSIGNED], then copied as a block
    // of 20 (which stays inside `text`), of which the first `length` count.
    char text[2 * LONGEST_UNSIGNED] = {};
    char* const end = text + LONGEST_UNSIGNED;
    char* first = end;
    while (number >= 100) {
        first -= 2;
        std::memcpy(first, DIGIT_PAIRS + number % 100 * 2, 2);
        number /= 100;
    }
    if (number >= 10) {
        first -= 2;
        std::memcpy(first, DIGIT_PAIRS + number * 2, 2);
    } else {
        *--first = char('0' + number);
    }
    std::memcpy(at, first, LONGEST_UNSIGNED);
    return at + (end - first);
}

template <typename T>
char* writeSigned(char* at, T value) {
    std::uint64_t magnitude = std::uint64_t(value);
    if (value < 0) {
        *at++ = '-';
        magnitude = 0 - magnitude;
    }
    return writeUnsigned(at, magnitude);
}

// The text std::to_chars gives for digits x 10^exponent: the shorter of the
// fixed and the scientific form, the fixed one on a tie.
char* writeDecimal(char* at, std::uint64_t digits, int exponent) {
    char text[NUMBER_TEXT_ROOM];
    const int length = int(writeUnsigned(text, digits) - text);
    const int scientificExponent = exponent + length - 1;
    const int magnitude = scientificExponent < 0 ? -scientificExponent : scientificExponent;
    const int scientificLength = length + (length > 1 ? 1 : 0) + 2 + (magnitude >= 100 ? 3 : 2);
    const int fixedLength = exponent >= 0 ? length + exponent
                            : scientificExponent >= 0 ? length + 1
                                                      : 1 - scientificExponent + length;
    if (fixedLength <= scientificLength) {
        if (exponent >= 0) {
            std::memcpy(at, text, size_t(length));
            std::memset(at + length, '0', size_t(exponent));
            return at + fixedLength;
        }
        if (scientificExponent >= 0) {
            const int whole = scientificExponent + 1;
            std::memcpy(at, text, size_t(whole));
            at[whole] = '.';
            std::memcpy(at + whole + 1, text + whole, size_t(length - whole));
            return at + fixedLength;
        }
        const int zeros = -scientificExponent - 1;
        at[0] = '0';
        at[1] = '.';
        std::memset(at + 2, '0', size_t(zeros));
        std::memcpy(at + 2 + zeros, text, size_t(length));
        return at + fixedLength;
    }
    char* out = at;
    *out++ = text[0];
    if (length > 1) {
        *out++ = '.';
        std::memcpy(out, text + 1, size_t(length - 1));
        out += length - 1;
    }
    *out++ = 'e';
    *out++ = scientificExponent < 0 ? '-' : '+';
    if (magnitude >= 100) *out++ = char('0' + magnitude / 100);
    *out++ = char('0' + magnitude / 10 % 10);
    *out++ = char('0' + magnitude % 10);
    return out;
}

template <typename T>
std::string toString(T value, char* (*write)(char*, T)) {
    char text[NUMBER_TEXT_ROOM];
    return std::string(text, write(text, value));
}

}  // namespace

char* writeInt(char* at, int value) { return writeSigned(at, value); }
char* writeLongLong(char* at, long long value) { return writeSigned(at, value); }

// std::to_chars without a precision gives the shortest text that round-trips;
// the doubles that are short decimals exactly take a quicker way to the same text.
char* writeDouble(char* at, double value) {
    std::uint64_t digits = 0;
    int exponent = 0;
    if (!exactShortDecimal(std::fabs(value), digits, exponent))
        return std::to_chars(at, at + NUMBER_TEXT_ROOM, value).ptr;
    if (std::signbit(value)) *at++ = '-';
    return writeDecimal(at, digits, exponent);
}

std::string intToStr(int value) { return toString(value, writeInt); }
std::string longlongToStr(long long value) { return toString(value, writeLongLong); }
std::string doubleToStr(double value) { return toString(value, writeDouble); }

}  // namespace QKL
