// SOAP text from the network through the bridge: the envelope split and
// reassembled; the request converted into a message (soapToQklmsg); on success
// its reply (genReply) and the request itself answered (qklmsgToSoap), on
// failure the fault rendered.
//
// Invariants:
//  - an envelope cut out of any text assembles into a text that splits again
//    into the same namespace and the Header and Body elements written around
//    its pieces;
//  - soapToQklmsg gives 0 or -1; after -1 a fault is held whenever the request's
//    SOAP version is 1.1 or 1.2 (an envelope declared with an empty namespace has
//    version 0, for which no fault exists);
//  - qklmsgToSoap gives 0 exactly when it hands out an envelope, and the text of
//    every envelope or fault it makes splits again the same way;
//  - a converted request is a document that loads again.
//
// A request whose Body starts with "<!" is never answered (kept on purpose, see
// QKLSoapConverter.h); it is refused first with neverCompletes(), as every
// caller facing untrusted clients must do. An input whose first byte is 0x01
// converts the rest in the converter's strict mode, which answers every request.
#include <cstdlib>
#include <memory>
#include <string>

#include "fuzz/targets/FuzzTargets.h"
#include "qkl/QKL.h"

namespace QKLFuzz {

namespace {

using Envelope = std::unique_ptr<QKL::QKLSoapEnvelope>;

const std::uint8_t STRICT_MODE_BYTE = 0x01;

// The split takes the first "<soap:Header", "</soap:Header>", "<soap:Body" and
// "</soap:Body" (any letter case) behind the namespace, and searches the Body from
// a Header's start even when that Header is never closed (kept as built): a piece
// that holds such a text itself is cut elsewhere, so it is left out of the promise.
bool holdsEnvelopeTags(const std::string& piece) {
    const QKL::ignorecase_string text = QKL::toIgnoreCase(piece);
    return text.find("soap:header") != text.npos || text.find("soap:body") != text.npos;
}

// The text of an envelope the library made: it splits again into the namespace,
// the Header element and the Body element that assembly() wrote.
void requireSplits(QKL::QKLSoapEnvelope& envelope, const char* what) {
    const std::unique_ptr<char, void (*)(void*)> text(envelope.toText(), &std::free);
    require(text != nullptr, what);
    const std::string header = envelope.getHeader(), body = envelope.getBody();
    if (holdsEnvelopeTags(header) || holdsEnvelopeTags(body)) return;
    const Envelope again(QKL::QKLSoapEnvelope::fromText(text.get()));
    require(again != nullptr && again->getNamespaceURI() == envelope.getNamespaceURI(), what);
    require(again->getHeader() == (header.empty() ? "" : "<soap:Header>\n" + header + "</soap:Header>"), what);
    require(again->getBody() == "<soap:Body>\n" + body + "</soap:Body>", what);
}

void splitAndAssemble(const std::string& text) {
    const Envelope envelope(QKL::QKLSoapEnvelope::fromText(text.c_str()));
    if (envelope) requireSplits(*envelope, "an envelope cut out of a text assembles into one that splits again");
}

bool faultExpected(QKL::SoapVersion version) { return version == QKL::SOAP_1_1 || version == QKL::SOAP_1_2; }

void answer(QKL::QKLSoapConverter& converter, QKL::QKLMessage& reply, QKL::SoapVersion version) {
    QKL::QKLSoapEnvelope* made = nullptr;
    const int result = converter.qklmsgToSoap(reply, version, made);
    const Envelope response(made);
    require(result == 0 || result == -1, "qklmsgToSoap gives 0 or -1");
    require((result == 0) == (made != nullptr), "qklmsgToSoap gives 0 exactly when it hands out an envelope");
    if (response) requireSplits(*response, "the response envelope splits again");
    if (result != 0 && faultExpected(version))
        require(converter.getFault() != nullptr, "a failed answer holds a fault for SOAP 1.1 and 1.2");
    if (converter.getFault() != nullptr) requireSplits(*converter.getFault(), "the fault envelope splits again");
}

void convert(const std::string& text, bool strict) {
    if (!strict && QKL::QKLSoapConverter::neverCompletes(text.c_str())) return;
    QKL::QKLSoapConverter converter;
    converter.setStrict(strict);
    QKL::auto_destroy<QKL::QKLMessage> request(QKL::QKLMsgFactory::createNew());
    const int result = converter.soapToQklmsg(text.c_str(), *request);
    require(result == 0 || result == -1, "soapToQklmsg gives 0 or -1");
    // qklmsgToSoap starts a new conversion context: the request's version is kept here.
    const QKL::SoapVersion version = converter.getSoapVersion();
    if (result != 0) {
        if (faultExpected(version)) require(converter.getFault() != nullptr, "a failed conversion holds a fault");
        if (converter.getFault() != nullptr) requireSplits(*converter.getFault(), "the fault envelope splits again");
        return;
    }
    requireReloads(*request, "a converted request loads again from the bytes it writes");
    QKL::auto_destroy<QKL::QKLMessage> reply(request->genReply("fuzz"));
    answer(converter, *reply, version);
    // The request answers itself: its own "data" becomes the response.
    answer(converter, *request, version);
}

}  // namespace

void soapTarget(const std::uint8_t* data, std::size_t size) {
    assertionsAreFindings();
    const bool strict = size > 0 && data[0] == STRICT_MODE_BYTE;
    const std::string text(reinterpret_cast<const char*>(data) + strict, size - strict);
    splitAndAssemble(text);
    convert(text, strict);
}

}  // namespace QKLFuzz
