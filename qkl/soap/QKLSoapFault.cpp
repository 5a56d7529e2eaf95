// QKLSoapFault: SOAP 1.1 and SOAP 1.2 fault envelopes.
#include "qkl/common/QKLAssert.h"
#include "qkl/soap/QKLSoapEnvelope.h"

namespace QKL {

namespace {

// The prefix every fault is written with, whatever the request used.
const char FAULT_OPEN[] = "<soap:Fault>\n";
const char FAULT_CLOSE[] = "</soap:Fault>\n";
const char CODE_PREFIX[] = "soap:";

}  // namespace

QKLSoapFault::QKLSoapFault(const std::string& namespaceURI, Code code, const std::string& text)
    : QKLSoapEnvelope(namespaceURI), m_code(code), m_faultString(text) {}

QKLSoapFault* QKLSoapFault::createSoapFault(SoapVersion version, Code code, const std::string& text) {
    switch (version) {
    case SOAP_1_1: return new QKLSoapFault11(code, text);
    case SOAP_1_2: return new QKLSoapFault12(code, text);
    default: return nullptr;
    }
}

std::string QKLSoapFault::faultCodeToString(Code code) const {
    switch (code) {
    case VersionMismatch: return "VersionMismatch";
    case MustUnderstand: return "MustUnderstand";
    default: return std::string();
    }
}

std::string QKLSoapFault::detailBlock() const {
    return m_detail.empty() ? std::string() : "<detail>\n" + m_detail + "</detail>\n";
}

std::string QKLSoapFault::versionCodeName(Code code, const char* client, const char* server) const {
    switch (code) {
    case ClientError: return client;
    case ServerError: return server;
    default:
        QKL_ASSERT(code == VersionMismatch || code == MustUnderstand);
        return QKLSoapFault::faultCodeToString(code);
    }
}

QKLSoapFault11::QKLSoapFault11(Code code, const std::string& text)
    : QKLSoapFault(Soap11EnvelopeNamespace, code, text) {}

char* QKLSoapFault11::toText() {
    m_body = FAULT_OPEN;
    m_body += "<faultcode>" + (CODE_PREFIX + faultCodeToString(m_code)) + "</faultcode>\n";
    m_body += "<faultstring>" + m_faultString + "</faultstring>\n";
    m_body += detailBlock() + FAULT_CLOSE;
    return assembly();
}

std::string QKLSoapFault11::faultCodeToString(Code code) const { return versionCodeName(code, "Client", "Server"); }

QKLSoapFault12::QKLSoapFault12(Code code, const std::string& text)
    : QKLSoapFault(Soap12EnvelopeNamespace, code, text) {}

char* QKLSoapFault12::toText() { return writeFault("<soap:Text>", detailBlock()); }

char* QKLSoapFault12::writeFault(const char* textStart, const std::string& detail) {
    m_body = FAULT_OPEN;
    m_body += "<soap:Code>\n<soap:Value>" + (CODE_PREFIX + faultCodeToString(m_code)) +
              "</soap:Value>\n</soap:Code>\n";
    m_body += "<soap:Reason>\n" + (textStart + m_faultString) + "</soap:Text>\n</soap:Reason>\n";
    m_body += detail + FAULT_CLOSE;
    return assembly();
}

std::string QKLSoapFault12::faultCodeToString(Code code) const {
    return versionCodeName(code, "Sender", "Receiver");
}

QKLSoapFault12Strict::QKLSoapFault12Strict(Code code, const std::string& text) : QKLSoapFault12(code, text) {}

char* QKLSoapFault12Strict::toText() {
    return writeFault("<soap:Text xml:lang=\"en\">",
                      m_detail.empty() ? std::string() : "<soap:Detail>\n" + m_detail + "</soap:Detail>\n");
}

}  // namespace QKL
