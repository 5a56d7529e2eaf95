// The agent's reply into a SOAP response or fault envelope.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLSessionID.h"
#include "qkl/soap/QKLSoapConverter.h"

namespace QKL {

namespace {

const std::string DATA_NAME = QKLMessage::DATA;
const std::string ERROR_NAME = "error";
const std::string SYSTEM_OPERATOR = "system";
const std::string CONFIGURATION_NAME = "configuration";
const std::string RESPONSE_SUFFIX = "Response";
const std::string DEFAULT_VERSION_SEGMENT = "4.5.0/";
const std::string PACKET_START = "<packet";
const std::string PACKET_END = "/packet>";
const std::string PACKET_HEADER_END = "/packet_header>";
const std::string PROTOCOL_SEGMENT = "protocol";

constexpr int COOKIE_ID = 1400;
constexpr int OPERATION_NAME_ID = 1322;       // "request"
constexpr int OPERATION_NAMESPACE_ID = 1026;  // "name"

// The element at `at` rendered as text and appended to `out`; false on failure.
bool appendText(const QKLMessage& reply, const QKLMessageIterator& at, const std::string& base, std::string& out) {
    char* text = reply.toText(&at, base, QKLMessageIterator::TEXT_FLAGS);
    if (text == nullptr) return false;
    out += text;
    std::free(text);
    return true;
}

// The element at `at` and every following sibling named `name` ("" for any).
bool appendSiblings(const QKLMessage& reply, const QKLMessageIterator& at, const std::string& name,
                    const std::string& base, std::string& out) {
    do {
        if (!appendText(reply, at, base, out)) return false;
    } while ((name.empty() ? at.nextSibling() : at.nextSibling(name)) == 0);
    return true;
}

// The namespace base plus the reply's version segment, "4.5.0/" for 0.
std::string versionedBase(const QKLMessage& reply) {
    std::string session;
    int number = 0;
    if (reply.getSessionID(session) == 0)
        number = QKLSessionID(session).getVersion();
    else
        reply.getVersion(number);
    if (number == 0) return QKLSoapConverter::NamespaceBase + DEFAULT_VERSION_SEGMENT;
    char segment[48];
    std::snprintf(segment, sizeof segment, "%d.%d.%d/", number / 10000, (number / 100) % 100, number % 100);
    return QKLSoapConverter::NamespaceBase + std::string(segment);
}

}  // namespace

int QKLSoapConverter::qklmsgToSoap(QKLMessage& reply, SoapVersion version, QKLSoapEnvelope*& result) {
    context().init();
    result = nullptr;
    const std::unique_ptr<QKLMessageIterator> it(reply.newIterator());
    const std::string base = versionedBase(reply);
    // Every failure before the last step: a fault of `version`, or SOAP 1.1
    // "Unsupported soap version" when `version` has none.
    auto fault = [&](const char* text) {
        QKLSoapFault* made = makeFault(version, QKLSoapFault::ClientError, text);
        if (made == nullptr) made = QKLSoapFault::createSoapFault(SOAP_1_1, QKLSoapFault::ClientError,
                                                                  UnsupportedVersionText);
        context().setFault(made);
        return -1;
    };
    if (it == nullptr) return fault(HeaderNotRenderedText);

    // The system errors under data, else the operator's errors.
    std::string errors;
    bool failed = false;
    if (it->seek(DATA_NAME) == 0) {
        if (it->seek(ERROR_NAME) == 0) {
            if (!appendSiblings(reply, *it, ERROR_NAME, base, errors)) return fault(SystemErrorText);
            failed = true;
        } else if (it->firstChild() == 0 && it->seek(ERROR_NAME) == 0) {
            if (!appendSiblings(reply, *it, ERROR_NAME, base, errors)) return fault(OperatorErrorText);
            failed = true;
        }
    }

    // The client's operation name and namespace, kept in the cookie.
    it->seekRoot();
    if (it->seek(COOKIE_ID) != 0) return fault(NoCookieText);
    std::string operation, operationNamespace;
    it->getValue(operation, OPERATION_NAME_ID);
    if (operation.empty()) return fault(NoOperationNameText);
    it->getValue(operationNamespace, OPERATION_NAMESPACE_ID);
    if (operationNamespace.empty()) return fault(NoOperationNamespaceText);

    // "<operation>Response" around the operator's answer.
    std::string response;
    it->seekRoot();
    if (!failed) {
        response = "<" + operation + RESPONSE_SUFFIX;
        const bool haveOperator = it->seek(DATA_NAME) == 0 && it->firstChild() == 0;
        const std::string name = haveOperator ? it->curName() : std::string();
        // An operator element without a name leaves the start tag open, as built.
        if (!haveOperator || !name.empty()) response += " xmlns=\"" + operationNamespace + "\">\n";
        const bool whole = name == SYSTEM_OPERATOR && it->seekPresence(CONFIGURATION_NAME) == 0;
        if (haveOperator && (whole || it->firstChild() == 0) &&
            !appendSiblings(reply, *it, std::string(), base, response))
            return fault(NoResponseText);
        response += "</" + operation + RESPONSE_SUFFIX + ">\n";
    }

    // The rest of the reply becomes the SOAP Header's packet_header.
    it->seekRoot();
    if (it->seek(DATA_NAME) == 0) it->deleteFromChild();
    char* rendered = reply.toText(nullptr, base, QKLMessageIterator::TEXT_FLAGS);
    if (rendered == nullptr) return fault(HeaderNotRenderedText);
    std::string header(rendered);
    std::free(rendered);
    srch_repl(header, PACKET_START, "<packet_header xmlns=\"" + base + PROTOCOL_SEGMENT + '"');
    srch_repl(header, PACKET_END, PACKET_HEADER_END);

    // A reply with errors: a Server/Receiver fault with the errors as detail.
    if (failed) {
        QKLSoapFault* answer = makeFault(version, QKLSoapFault::ServerError, RespondedWithErrorText);
        if (answer == nullptr) return fault(UnsupportedVersionText);
        answer->setHeader(header);
        answer->setDetail(errors);
        result = answer;
        return 0;
    }
    const std::string uri = getSoapURIByVersion(version);
    if (uri.empty()) {
        // As built: for a version without faults this stores no fault at all.
        context().setFault(makeFault(version, QKLSoapFault::ClientError, UnsupportedVersionText));
        return -1;
    }
    QKLSoapEnvelope* envelope = new QKLSoapEnvelope(uri);
    envelope->setHeader(header);
    envelope->setBody(response);
    result = envelope;
    return 0;
}

}  // namespace QKL
