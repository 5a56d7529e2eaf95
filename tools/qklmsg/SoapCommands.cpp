// qklmsg soap-to-msg and msg-to-soap: the two directions of the SOAP bridge
// on files.
#include "Commands.h"
#include "MessageIO.h"
#include "SoapBridge.h"

namespace qklmsg {

int runSoapToMsg(const CommandLine& line) {
    if (line.binary && binaryToTerminal(line.output))
        return usageError("soap-to-msg -b writes bytes: give -o OUT or redirect");
    Input input;
    if (!readInput(line.operands[0], input) || !checkPlainText(input)) return EXIT_REFUSED;
    QKL::QKLSoapConverter converter;
    converter.setStrict(line.strict);
    QKL::auto_destroy<QKL::QKLMessage> message(messageFromSoap(input.bytes, input.name, converter));
    if (!message) return EXIT_REFUSED;
    const MessageForm form = line.binary ? MessageForm::BinaryDocument : MessageForm::XmlText;
    std::string out;
    if (!renderMessage(*message, form, input.name, out)) return EXIT_REFUSED;
    return writeOutput(line.output, out) ? EXIT_DONE : EXIT_REFUSED;
}

int runMsgToSoap(const CommandLine& line) {
    Input input;
    QKL::auto_destroy<QKL::QKLMessage> reply(readMessage(line.operands[0], input));
    if (!reply) return EXIT_REFUSED;
    std::string envelope;
    if (!soapFromReply(*reply, line.soapVersion, input.name, envelope, line.strict)) return EXIT_REFUSED;
    return writeOutput(line.output, envelope) ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace qklmsg
