// qklmsg's input and output. Input comes from a path or "-" (standard input),
// read whole. Output goes to standard output, or to a file that is written
// under a temporary name in the same directory and renamed only once every
// byte is on disk, so a failed run never leaves a partial output file.
// Every refusal is one line on standard error: "qklmsg: WHERE: WHAT".
#ifndef QKLMSG_TOOLIO_H
#define QKLMSG_TOOLIO_H

#include <string>

namespace qklmsg {

// The exit statuses: done; the input was refused (one line on standard error says why); usage.
enum ExitStatus { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

// The operand that names standard input (and nothing else).
extern const char* const STANDARD_STREAM;

struct Input {
    std::string name;   // for messages: the path, or "standard input"
    std::string bytes;  // the whole input, zero bytes included
};

// Reads the whole input; false after reporting why on standard error.
bool readInput(const std::string& path, Input& input);

// True when the input holds no zero byte, as every text input must (the
// library takes text as zero-terminated); else reports where the first one is.
bool checkPlainText(const Input& input);

// Writes one line "qklmsg: WHERE: WHAT" on standard error; returns EXIT_REFUSED.
int refuse(const std::string& where, const std::string& what);
// The same line for information that does not end the run.
void note(const std::string& where, const std::string& what);

// Writes the bytes to standard output (an empty path) or, atomically, to the
// file at `path`; false after reporting why on standard error.
bool writeOutput(const std::string& path, const std::string& bytes);

// Flushes what printf wrote to standard output; false after reporting a write error.
bool flushStandardOutput();

// True when binary output would land on a terminal: no -o and standard output is one.
bool binaryToTerminal(const std::string& outputPath);

}  // namespace qklmsg

#endif
