// qklmsg to-xml and to-binary: a message, binary document or XML text, written
// out in the form the command names.
#include "Commands.h"
#include "MessageIO.h"

namespace qklmsg {

namespace {

int convert(const CommandLine& line, MessageForm form) {
    Input input;
    QKL::auto_destroy<QKL::QKLMessage> message(readMessage(line.operands[0], input));
    if (!message) return EXIT_REFUSED;
    std::string out;
    if (!renderMessage(*message, form, input.name, out)) return EXIT_REFUSED;
    return writeOutput(line.output, out) ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace

int runToXml(const CommandLine& line) { return convert(line, MessageForm::XmlText); }

int runToBinary(const CommandLine& line) {
    if (binaryToTerminal(line.output)) return usageError("to-binary writes bytes: give -o OUT or redirect");
    return convert(line, MessageForm::BinaryDocument);
}

}  // namespace qklmsg
