// qklmsg to-xml and to-binary: each message of the input, binary document or
// XML text, written out in the form the command names: XML texts one after
// the other, each ending in a line end; binary documents back to back, which
// frames them again.
#include "Commands.h"
#include "MessageIO.h"

namespace qklmsg {

namespace {

bool writeXml(const QKL::QKLMessage& message, const Received& received, std::string& out) {
    return renderMessage(message, MessageForm::XmlText, received.where, out);
}

bool writeBinary(const QKL::QKLMessage& message, const Received& received, std::string& out) {
    return renderMessage(message, MessageForm::BinaryDocument, received.where, out);
}

}  // namespace

int runToXml(const CommandLine& line) { return writeEachMessage(line.operands[0], line.output, writeXml); }

int runToBinary(const CommandLine& line) {
    if (binaryToTerminal(line.output)) return usageError("to-binary writes bytes: give -o OUT or redirect");
    return writeEachMessage(line.operands[0], line.output, writeBinary);
}

}  // namespace qklmsg
