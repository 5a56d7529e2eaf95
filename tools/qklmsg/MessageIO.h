// Messages in and out of the tool: input bytes become messages the way the
// library tells a binary document from XML text (QKLMsgFactory::kindOf for
// the kind, QKLMessage::isComplete for the framing), and a message leaves as
// XML text (toText) or as a binary document (serialize).
//
// An input may hold several messages back to back, as a transport receives
// them: a binary document ends where its sizes say, XML text at its zero byte.
// The end of input ends XML text as its zero byte would, so a text file needs
// none; a binary document cut short by the end of input is truncated.
#ifndef QKLMSG_MESSAGEIO_H
#define QKLMSG_MESSAGEIO_H

#include <string>

#include "ToolIO.h"
#include "qkl/QKL.h"

namespace qklmsg {

// True when the bytes are a binary document by the library's own test.
bool isBinaryDocument(const std::string& bytes);

// Reads the input at `path` ("-": standard input) into `input`, then the
// message it holds as readMessage(input) does; null after reporting.
QKL::QKLMessage* readMessage(const std::string& path, Input& input);

// The one message the input holds, owned by the caller (destroy()); null
// after reporting on standard error why the input was refused (bytes after
// the message included).
QKL::QKLMessage* readMessage(const Input& input);

// One message of an input that holds several: `where` names it for reports,
// `binary` tells whether it came as a binary document (else as XML text).
struct Received {
    std::string where;
    bool binary;
};

// Appends what a command makes of one message to `out`; false after reporting.
using MessageWriter = bool (*)(const QKL::QKLMessage& message, const Received& received, std::string& out);
// Appends what a command can show of a binary document the library refused
// (the bytes framed for it, or all that is left of a truncated one).
using RefusedWriter = void (*)(const char* bytes, std::size_t length, std::string& out);

// Reads every message of the input at `path` in turn, appends what `write`
// makes of each, and writes the whole to `output` (see writeOutput). A message
// refused writes nothing. A truncated last message is refused after the
// complete ones before it are written. With `refused`, a refused binary
// document ends the output with what `refused` shows of it, but only on
// standard output: a refused run writes no output file. Returns an ExitStatus.
int writeEachMessage(const std::string& path, const std::string& output, MessageWriter write,
                     RefusedWriter refused = nullptr);

// Where and why the library refuses the binary document in these bytes, as the
// message that refuses them records it (clear if it takes them).
QKL::DocumentError documentFault(const char* bytes, std::size_t length);
// Where and why the library refuses the XML text in these bytes (`length` with the
// text's zero byte), as the message that refuses it records it.
QKL::TextError textFault(const char* bytes, int length);
// "offset N: REASON", the form of every refusal of a binary document by the tool.
std::string faultText(const QKL::DocumentError& fault);

// The forms a message is written in.
enum class MessageForm { XmlText, BinaryDocument };

// Appends the whole message in `form` to `out`; false after reporting
// (`where` names the message). XML text ends with a line end. A message whose
// own version is below 4.0.0 serializes as XML text with its zero byte, as the
// library does for such peers; that is said on standard error.
bool renderMessage(const QKL::QKLMessage& message, MessageForm form, const std::string& where, std::string& out);

// A new, empty message of the default protocol, owned by the caller; null after reporting.
QKL::QKLMessage* newMessage(const std::string& where);

}  // namespace qklmsg

#endif
