// Messages in and out of the tool: input bytes become a message the way the
// library tells a binary document from XML text (QKLMsgFactory::kindOf for
// the kind, QKLMessage::isComplete for the framing), and a message leaves as
// XML text (toText) or as a binary document (serialize).
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

// The message the input holds, owned by the caller (destroy()); null after
// reporting on standard error why the input was refused.
QKL::QKLMessage* readMessage(const Input& input);

// The forms a message is written in.
enum class MessageForm { XmlText, BinaryDocument };

// The whole message in `form`; false after reporting (`where` names the
// message). XML text ends with a line end. A message whose own version is
// below 4.0.0 serializes as XML text, as the library does for such peers;
// that is said on standard error.
bool renderMessage(const QKL::QKLMessage& message, MessageForm form, const std::string& where, std::string& out);

// A new, empty message of the default protocol, owned by the caller; null after reporting.
QKL::QKLMessage* newMessage(const std::string& where);

}  // namespace qklmsg

#endif
