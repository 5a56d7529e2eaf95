#include "qkl/common/GenerateID.h"

#include <uuid/uuid.h>

namespace QKL {

std::string generateID() {
    uuid_t id;
    uuid_generate_random(id);
    char text[37];
    uuid_unparse_lower(id, text);
    return std::string(text);
}

}  // namespace QKL
