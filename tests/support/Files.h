// Test support: files as bytes. readFile gives the whole content of a file, byte for byte ("" when
// it cannot be read); dataFile the same for a path below tests/data; fromHex the bytes of a hex dump.
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

inline std::string dataFile(const std::string& path) { return readFile(std::string(QKL_TEST_DATA_DIR) + "/" + path); }

// Hex digit pairs ("98 ba" or "98ba"); other white space is ignored and "#" starts a comment.
inline std::string fromHex(const std::string& text) {
    std::string bytes, line, word;
    for (std::istringstream lines(text); std::getline(lines, line);)
        for (std::istringstream words(line.substr(0, line.find('#'))); words >> word;)
            for (size_t i = 0; i + 1 < word.size(); i += 2) bytes += char(std::stoi(word.substr(i, 2), nullptr, 16));
    return bytes;
}

}  // namespace QKLTest

#endif
