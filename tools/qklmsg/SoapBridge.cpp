#include "SoapBridge.h"

#include <cstdlib>
#include <memory>

#include "MessageIO.h"
#include "ToolIO.h"

namespace qklmsg {

namespace {

using QKL::QKLSoapConverter;
using QKL::QKLSoapEnvelope;

const char* const NEVER_COMPLETES_TEXT =
    "refused: the first element of the SOAP Body is a comment or declaration (\"<!\"), which the converter "
    "would never finish";

// The envelope's text with a line end; false only when memory ran out.
bool envelopeText(QKLSoapEnvelope& envelope, std::string& text) {
    char* rendered = envelope.toText();
    if (rendered == nullptr) return false;
    text = rendered;
    text += '\n';
    std::free(rendered);
    return true;
}

// The converter's failure: its fault envelope (if the SOAP version has one)
// to standard output, the fault string as the refusal line, followed by `behind`
// (why the XML reader refused the converted text) when there is such a reason.
void reportFault(const QKLSoapConverter& converter, const std::string& where, const std::string& stage,
                 const std::string& behind = std::string()) {
    const std::string because = behind.empty() ? std::string() : " (" + behind + ")";
    QKL::QKLSoapFault* fault = converter.getFault();
    if (fault == nullptr) {
        refuse(where, stage + " failed; the SOAP version has no fault envelope to answer with" + because);
        return;
    }
    std::string text;
    if (envelopeText(*fault, text)) writeOutput(std::string(), text);
    refuse(where, stage + " failed: " + fault->getFaultString() + because);
}

}  // namespace

std::string readerReason(const QKL::QKLMessage& message) {
    const QKL::QKLBinary* binary = dynamic_cast<const QKL::QKLBinary*>(&message);
    if (binary == nullptr || !binary->lastTextError()) return std::string();
    const QKL::TextError& fault = binary->lastTextError();
    return "the XML reader refused the converted text at line " + std::to_string(fault.line) + ", column " +
           std::to_string(fault.column) + ": " + fault.text();
}

QKL::QKLMessage* messageFromSoap(const std::string& request, const std::string& where,
                                 QKLSoapConverter& converter) {
    if (!converter.strict() && QKLSoapConverter::neverCompletes(request.c_str())) {
        refuse(where, NEVER_COMPLETES_TEXT);
        return nullptr;
    }
    QKL::auto_destroy<QKL::QKLMessage> message(newMessage(where));
    if (!message) return nullptr;
    if (converter.soapToQklmsg(request.c_str(), *message) != 0) {
        reportFault(converter, where, "SOAP request conversion", readerReason(*message));
        return nullptr;
    }
    return message.release();
}

bool soapFromReply(QKL::QKLMessage& reply, QKL::SoapVersion version, const std::string& where,
                   std::string& envelope, bool strict) {
    QKLSoapConverter converter;
    converter.setStrict(strict);
    QKLSoapEnvelope* made = nullptr;
    if (converter.qklmsgToSoap(reply, version, made) != 0) {
        reportFault(converter, where, "SOAP response conversion");
        return false;
    }
    const std::unique_ptr<QKLSoapEnvelope> result(made);
    if (envelopeText(*result, envelope)) return true;
    refuse(where, "out of memory writing the SOAP envelope");
    return false;
}

}  // namespace qklmsg
