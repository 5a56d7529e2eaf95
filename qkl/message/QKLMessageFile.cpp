// Message text files: toTextFile and fromTextFile.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"

namespace QKL {

int QKLMessage::toTextFile(const std::string& path) const {
    char* text = toText(nullptr, QKLMessageIterator::EmptyName, QKLMessageIterator::TEXT_FLAGS);
    if (text == nullptr) return -1;
    std::FILE* file = std::fopen(path.c_str(), "w+");
    if (file == nullptr) {
        std::free(text);
        return -1;
    }
    std::fwrite(text, 1, std::strlen(text), file);
    const int result = std::ferror(file);
    std::free(text);
    std::fclose(file);
    return result;
}

int QKLMessage::fromTextFile(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY);
    if (descriptor < 0) return -1;
    struct stat status;
    if (::fstat(descriptor, &status) != 0 || status.st_size < 0 || status.st_size >= INT32_MAX) {
        ::close(descriptor);
        return -1;
    }
    const size_t size = size_t(status.st_size);
    char* buffer = static_cast<char*>(std::malloc(size + 1));
    if (buffer == nullptr) {
        ::close(descriptor);
        return -1;
    }
    const ssize_t got = ::read(descriptor, buffer, size);
    int result;
    if (got >= 0 && size_t(got) == size) {
        buffer[size] = '\0';
        result = fromText(buffer, nullptr);
    } else {
        // Deliberately unchanged: -1 on an error, or the short count itself.
        result = int(got);
    }
    std::free(buffer);
    ::close(descriptor);
    return result;
}

}  // namespace QKL
