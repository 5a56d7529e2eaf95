#include "SoapService.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <memory>

#include "DemoOperator.h"
#include "OperatorProcess.h"
#include "SoapBridge.h"
#include "qkl/QKL.h"

namespace qklmsg {

namespace {

using QKL::QKLMessage;
using QKL::QKLSoapConverter;
using QKL::QKLSoapEnvelope;
using QKL::QKLSoapFault;
using QKL::SoapVersion;

const char* const SOAP11_MEDIA_TYPE = "text/xml";
const char* const SOAP12_MEDIA_TYPE = "application/soap+xml";
const char* const SOAP11_CONTENT_TYPE = "text/xml; charset=utf-8";
const char* const SOAP12_CONTENT_TYPE = "application/soap+xml; charset=utf-8";
const char* const WSDL_CONTENT_TYPE = "text/xml";
const char* const PLAIN_CONTENT_TYPE = "text/plain; charset=utf-8";
const char* const ALLOWED_METHODS = "POST, GET";
const char* const WSDL_QUERY = "wsdl";

// Fault strings go into the envelope unescaped: none of these holds markup.
const char* const NEVER_COMPLETES_TEXT =
    "The first element of the SOAP Body is a comment or declaration, which is not accepted";
const char* const NO_MESSAGE_TEXT = "No message could be made for the request";
const char* const NO_REPLY_TEXT = "No reply could be made for the request";
const char* const BUILT_IN_FAILED_TEXT = "The built-in operator could not write its answer";
const char* const REQUEST_NOT_WRITTEN_TEXT = "The request cannot be written as XML text for the operator";
const char* const NOT_AN_ELEMENT_TEXT = "operator output is not a message element";

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

// The media type of a Content-Type field: before any parameter, trimmed, lower-cased.
std::string mediaType(const std::string& contentType) {
    const std::string type = contentType.substr(0, contentType.find(';'));
    const std::size_t first = type.find_first_not_of(" \t");
    if (first == std::string::npos) return std::string();
    return lowerCase(type.substr(first, type.find_last_not_of(" \t") + 1 - first));
}

// The SOAP version a Content-Type announces; SOAP_NONE for any other type.
SoapVersion versionOfContentType(const std::string& contentType) {
    const std::string type = mediaType(contentType);
    if (type == SOAP11_MEDIA_TYPE) return QKL::SOAP_1_1;
    if (type == SOAP12_MEDIA_TYPE) return QKL::SOAP_1_2;
    return QKL::SOAP_NONE;
}

// True when the target's query holds the parameter "wsdl" ("?wsdl", "?WSDL", "?a=1&wsdl=").
bool asksForWsdl(const std::string& target) {
    const std::size_t query = target.find('?');
    if (query == std::string::npos) return false;
    const std::string parameters = "&" + lowerCase(target.substr(query + 1)) + "&";
    return parameters.find(std::string("&") + WSDL_QUERY + "&") != std::string::npos ||
           parameters.find(std::string("&") + WSDL_QUERY + "=") != std::string::npos;
}

HttpAnswer envelopeAnswer(unsigned status, QKLSoapEnvelope& envelope) {
    HttpAnswer answer;
    char* text = envelope.toText();
    if (text == nullptr) return plainAnswer(500, "out of memory writing the SOAP envelope");
    answer.status = status;
    answer.body = text;
    answer.body += '\n';
    std::free(text);
    const bool soap12 = envelope.getNamespaceURI() == QKL::Soap12EnvelopeNamespace;
    answer.contentType = soap12 ? SOAP12_CONTENT_TYPE : SOAP11_CONTENT_TYPE;
    return answer;
}

// A fault of serve's own, in `version`, of the form the converter makes (`strict`).
HttpAnswer faultAnswer(SoapVersion version, QKLSoapFault::Code code, const std::string& text, bool strict) {
    const std::unique_ptr<QKLSoapFault> fault(strict && version == QKL::SOAP_1_2
                                                  ? new QKL::QKLSoapFault12Strict(code, text)
                                                  : QKLSoapFault::createSoapFault(version, code, text));
    return envelopeAnswer(500, *fault);
}

// The converter's fault; an envelope of version 0 (xmlns:soap="") leaves
// none, and is answered as a version mismatch in the Content-Type's version.
HttpAnswer converterFault(const QKLSoapConverter& converter, SoapVersion contentVersion) {
    if (converter.getFault() != nullptr) return envelopeAnswer(500, *converter.getFault());
    return faultAnswer(contentVersion, QKLSoapFault::VersionMismatch, QKLSoapConverter::VersionMismatchText,
                       converter.strict());
}

// The version of the request's envelope, else the Content-Type's.
SoapVersion envelopeVersion(const char* request, SoapVersion contentVersion) {
    const std::unique_ptr<QKLSoapEnvelope> envelope(QKLSoapEnvelope::fromText(request));
    if (!envelope) return contentVersion;
    const auto known = QKL::soapVersionMap().find(envelope->getNamespaceURI());
    return known == QKL::soapVersionMap().end() || known->second == QKL::SOAP_NONE ? contentVersion : known->second;
}

// The external operator: the request as XML text in, its operator element out, under the reply's data.
std::string runExternal(const ServiceSettings& settings, const QKLMessage& request, QKLMessage& reply) {
    char* text = request.toText(nullptr, std::string(), QKL::QKLMessageIterator::TEXT_FLAGS);
    if (text == nullptr) return REQUEST_NOT_WRITTEN_TEXT;
    const std::string input(text);
    std::free(text);
    const OperatorRun run = runOperatorProcess(settings.operatorCommand, input, settings.operatorTimeoutSeconds);
    if (!run.failure.empty()) return run.failure;
    const std::unique_ptr<QKL::QKLMessageIterator> data(reply.newIterator());
    if (run.output.find('\0') != std::string::npos || !data || data->seek(QKLMessage::DATA) != 0 ||
        reply.fromText(run.output.c_str(), data.get()) != 0)
        return NOT_AN_ELEMENT_TEXT;
    return std::string();
}

// Empty when the operator answered into `reply`; else why not, as a fault text.
std::string operate(const ServiceSettings& settings, const QKLMessage& request, QKLMessage& reply) {
    if (!settings.operatorCommand.empty()) return runExternal(settings, request, reply);
    std::string scope;
    return answerAsDemoOperator(request, reply, scope) ? std::string() : BUILT_IN_FAILED_TEXT;
}

HttpAnswer soapCall(const ServiceSettings& settings, const std::string& body, SoapVersion contentVersion) {
    const char* const text = body.c_str();
    const bool strict = settings.strict;
    // The default converter would never return on such a Body: refused before
    // it is tried. (A strict one passes a comment over and refuses a declaration.)
    if (!strict && QKLSoapConverter::neverCompletes(text))
        return faultAnswer(envelopeVersion(text, contentVersion), QKLSoapFault::ClientError, NEVER_COMPLETES_TEXT,
                           false);
    QKLSoapConverter converter;
    converter.setStrict(strict);
    QKL::auto_destroy<QKLMessage> request(QKL::QKLMsgFactory::createNew());
    if (!request) return faultAnswer(contentVersion, QKLSoapFault::ServerError, NO_MESSAGE_TEXT, strict);
    if (converter.soapToQklmsg(text, *request) != 0) {
        HttpAnswer answer = converterFault(converter, contentVersion);
        answer.reason = readerReason(*request);
        return answer;
    }
    // qklmsgToSoap starts a new conversion, which forgets the request's version.
    const SoapVersion version = converter.getSoapVersion();
    const SoapVersion faultVersion = version == QKL::SOAP_NONE ? contentVersion : version;
    QKL::auto_destroy<QKLMessage> reply(request->genReply(REPLY_ORIGIN));
    if (!reply) return faultAnswer(faultVersion, QKLSoapFault::ServerError, NO_REPLY_TEXT, strict);
    const std::string failure = operate(settings, *request, *reply);
    if (!failure.empty()) return faultAnswer(faultVersion, QKLSoapFault::ServerError, failure, strict);
    QKLSoapEnvelope* made = nullptr;
    if (converter.qklmsgToSoap(*reply, version, made) != 0) return converterFault(converter, contentVersion);
    const std::unique_ptr<QKLSoapEnvelope> response(made);
    // A reply that carries errors converts to a fault envelope: still a fault to HTTP.
    return envelopeAnswer(dynamic_cast<QKLSoapFault*>(made) != nullptr ? 500 : 200, *response);
}

}  // namespace

HttpAnswer plainAnswer(unsigned status, const std::string& line) {
    HttpAnswer answer;
    answer.status = status;
    answer.contentType = PLAIN_CONTENT_TYPE;
    answer.body = line + "\n";
    return answer;
}

HttpAnswer SoapService::answer(const HttpAsk& ask) const {
    if (ask.method == "GET" && asksForWsdl(ask.target)) {
        if (!m_settings.haveWsdl) return plainAnswer(404, "no WSDL is served here (qklmsg serve --wsdl FILE)");
        HttpAnswer answer;
        answer.contentType = WSDL_CONTENT_TYPE;
        answer.body = m_settings.wsdl;
        return answer;
    }
    if (ask.method != "POST") {
        HttpAnswer answer = plainAnswer(405, "method not allowed: POST a SOAP request, or GET ?wsdl");
        answer.allow = ALLOWED_METHODS;
        return answer;
    }
    const SoapVersion version = versionOfContentType(ask.contentType);
    if (version == QKL::SOAP_NONE)
        return plainAnswer(415, "unsupported media type: text/xml (SOAP 1.1) or application/soap+xml (SOAP 1.2)");
    return soapCall(m_settings, ask.body, version);
}

}  // namespace qklmsg
