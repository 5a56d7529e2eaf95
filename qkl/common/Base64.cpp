#include "qkl/common/Base64.h"

#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/dataflow_exception.hpp>
#include <boost/archive/iterators/transform_width.hpp>

#include <cstring>

namespace QKL {
namespace Base64 {
namespace {

namespace it = boost::archive::iterators;
typedef it::base64_from_binary<it::transform_width<const char*, 6, 8> > Encoder;
typedef it::transform_width<it::binary_from_base64<const char*>, 8, 6> Decoder;

const char PAD = '=';
const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Number of '=' at the end of a 4-character-aligned text, or -1 when padding
// is misplaced (more than two, or '=' anywhere else).
int paddingOf(const char* text, int length) {
    int pad = 0;
    while (pad < length && pad < 3 && text[length - 1 - pad] == PAD) ++pad;
    if (pad > 2) return -1;
    for (int i = 0; i < length - pad; ++i)
        if (text[i] == 0 || std::strchr(ALPHABET, text[i]) == nullptr) return -1;
    return pad;
}

}  // namespace

std::string encode(const std::string& data) {
    const char* begin = data.data();
    std::string out(Encoder(begin), Encoder(begin + data.size()));
    out.append((3 - data.size() % 3) % 3, PAD);
    return out;
}

int decode(const char* text, int length, std::string* out) {
    if (out == nullptr || length < 0 || (length > 0 && text == nullptr) || length % 4 != 0) return -1;
    int pad = paddingOf(text, length);
    if (pad < 0) return -1;
    const int symbols = length - pad;
    // Each group of 4 symbols gives 3 bytes; a padded tail of 2 or 3 symbols gives 1 or 2.
    const size_t bytes = size_t(length / 4) * 3 - size_t(pad);
    out->clear();
    out->reserve(bytes);
    try {
        Decoder d(text), end(text + symbols);
        for (; out->size() < bytes && d != end; ++d) out->push_back(static_cast<char>(*d));
    } catch (const it::dataflow_exception&) {
        return -1;
    }
    return out->size() == bytes ? 0 : -1;
}

}  // namespace Base64
}  // namespace QKL
