// Test support: the whole content of a file, byte for byte ("" when it cannot be read).
#ifndef QKL_TESTS_SUPPORT_FILES_H
#define QKL_TESTS_SUPPORT_FILES_H

#include <fstream>
#include <sstream>
#include <string>

namespace QKLTest {

inline std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

}  // namespace QKLTest

#endif
