// Base64: the standard alphabet (RFC 4648, section 4) with '=' padding.
#ifndef QKL_COMMON_BASE64_H
#define QKL_COMMON_BASE64_H

#include <string>

namespace QKL {
namespace Base64 {

// The base64 text of the bytes of `data` (embedded NUL bytes included), padded to a multiple of 4.
std::string encode(const std::string& data);

// Decodes `length` characters at `text` into *out (replacing its content).
// Returns 0 on success and -1 when the text is not well-formed padded base64
// (a length that is not a multiple of 4, a character outside the alphabet,
// misplaced padding) or when text/out is null with length > 0; *out then
// holds nothing useful. Bits under the padding need not be zero ("Zh==" reads
// as "f"), as RFC 4648 lets decoders accept. Will not read past text + length.
int decode(const char* text, int length, std::string* out);

}  // namespace Base64
}  // namespace QKL

#endif
