// Unique identifiers.
#ifndef QKL_COMMON_GENERATEID_H
#define QKL_COMMON_GENERATEID_H

#include <string>

namespace QKL {

// A new random (version 4) UUID in its 36-character lower-case text form,
// e.g. "1b4e28ba-2fa1-41d2-883f-0016d3cca427": hex digits and '-', never a '.',
// so session identifiers (QKLSessionID) can split their fields on '.'.
std::string generateID();

}  // namespace QKL

#endif
