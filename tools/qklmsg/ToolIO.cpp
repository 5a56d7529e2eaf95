#include "ToolIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace qklmsg {

const char* const STANDARD_STREAM = "-";

namespace {

const char* const STANDARD_INPUT_NAME = "standard input";
const char* const STANDARD_OUTPUT_NAME = "standard output";
// The library takes lengths as int, and text inputs get one zero byte more.
constexpr std::size_t MAX_INPUT_BYTES = std::size_t(INT_MAX) - 1;
constexpr std::size_t READ_CHUNK = 64 * 1024;

std::string errorText(int error) { return std::strerror(error); }

// The refusal line for helpers that answer with a bool.
bool reportFailure(const std::string& where, const std::string& what) {
    note(where, what);
    return false;
}

// Appends everything the stream holds; false on a read error or an oversized input.
bool readAll(std::FILE* stream, Input& input) {
    char chunk[READ_CHUNK];
    std::size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, stream)) > 0) {
        if (input.bytes.size() + got > MAX_INPUT_BYTES) {
            return reportFailure(input.name, "input larger than " + std::to_string(MAX_INPUT_BYTES) + " bytes");
        }
        input.bytes.append(chunk, got);
    }
    if (!std::ferror(stream)) return true;
    return reportFailure(input.name, "cannot read: " + errorText(errno));
}

bool writeAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += std::size_t(written);
    }
    return true;
}

// The directory part of `path` ("." for a bare file name).
std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// mkstemp creates files readable by the owner only; an output file gets the
// permissions any newly created file would get under the current umask.
void giveOrdinaryPermissions(int fd) {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
}

bool writeStandardOutput(const std::string& bytes) {
    std::fflush(stdout);
    if (writeAll(STDOUT_FILENO, bytes)) return true;
    return reportFailure(STANDARD_OUTPUT_NAME, "cannot write: " + errorText(errno));
}

// Writes a temporary sibling of `path` and renames it over `path` only when
// everything went well; otherwise the temporary file is removed again.
bool writeFileAtomically(const std::string& path, const std::string& bytes) {
    std::string temporary = directoryOf(path) + "/.qklmsg-XXXXXX";
    const int fd = ::mkstemp(&temporary[0]);
    if (fd < 0) return reportFailure(path, "cannot create a file beside it: " + errorText(errno));
    giveOrdinaryPermissions(fd);
    bool written = writeAll(fd, bytes);
    int error = errno;
    if (::close(fd) != 0 && written) {
        written = false;
        error = errno;
    }
    if (!written) {
        ::unlink(temporary.c_str());
        return reportFailure(path, "cannot write: " + errorText(error));
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int renameError = errno;
        ::unlink(temporary.c_str());
        return reportFailure(path, "cannot replace: " + errorText(renameError));
    }
    return true;
}

}  // namespace

bool readInput(const std::string& path, Input& input) {
    input.bytes.clear();
    if (path == STANDARD_STREAM) {
        input.name = STANDARD_INPUT_NAME;
        return readAll(stdin, input);
    }
    input.name = path;
    std::FILE* stream = std::fopen(path.c_str(), "rb");
    if (stream == nullptr) return reportFailure(path, "cannot open: " + errorText(errno));
    const bool read = readAll(stream, input);
    std::fclose(stream);
    return read;
}

bool checkPlainText(const Input& input) {
    const std::size_t zero = input.bytes.find('\0');
    if (zero == std::string::npos) return true;
    return reportFailure(input.name, "a zero byte at offset " + std::to_string(zero) + " in text input");
}

int refuse(const std::string& where, const std::string& what) {
    note(where, what);
    return EXIT_REFUSED;
}

void note(const std::string& where, const std::string& what) {
    std::fprintf(stderr, "qklmsg: %s: %s\n", where.c_str(), what.c_str());
}

bool writeOutput(const std::string& path, const std::string& bytes) {
    return path.empty() ? writeStandardOutput(bytes) : writeFileAtomically(path, bytes);
}

bool flushStandardOutput() {
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
    return reportFailure(STANDARD_OUTPUT_NAME, "cannot write: " + errorText(errno));
}

bool binaryToTerminal(const std::string& outputPath) { return outputPath.empty() && ::isatty(STDOUT_FILENO); }

}  // namespace qklmsg
