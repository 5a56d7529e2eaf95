#include "qkl/util/CharArray.h"

namespace QKL {
namespace Internal {

const CharArray nullCharArray("", 0);

}  // namespace Internal
}  // namespace QKL
