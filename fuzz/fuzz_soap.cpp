// SOAP text from the network through the bridge: the envelope
// split and reassembled, soapToQklmsg into a fresh message, the fault rendered
// on failure, and on success the message answered with qklmsgToSoap (its own
// cookie names the operation) and the response rendered. Any read outside the
// text is an ASan finding; any crash or hang is a finding.
//
// A request whose Body starts with "<!" is never answered (kept on purpose, see
// QKLSoapConverter.h); it is refused first with neverCompletes(), as every
// caller facing untrusted clients must do.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "qkl/QKL.h"

namespace {

void silence(const char*, const char*, int) {}

void render(QKL::QKLSoapEnvelope& envelope) { std::free(envelope.toText()); }

void splitAndAssemble(const char* text) {
    const std::unique_ptr<QKL::QKLSoapEnvelope> envelope(QKL::QKLSoapEnvelope::fromText(text));
    if (envelope) render(*envelope);
}

void answer(QKL::QKLSoapConverter& converter, QKL::QKLMessage& message) {
    QKL::QKLSoapEnvelope* response = nullptr;
    if (converter.qklmsgToSoap(message, converter.getSoapVersion(), response) == 0) {
        render(*response);
        delete response;
    } else if (converter.getFault() != nullptr) {
        render(*converter.getFault());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QKL::setAssertHandler(&silence);
    const std::string text(reinterpret_cast<const char*>(data), size);
    splitAndAssemble(text.c_str());
    if (QKL::QKLSoapConverter::neverCompletes(text.c_str())) return 0;

    QKL::QKLSoapConverter converter;
    QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
    if (converter.soapToQklmsg(text.c_str(), *message) == 0)
        answer(converter, *message);
    else if (converter.getFault() != nullptr)
        render(*converter.getFault());
    return 0;
}
