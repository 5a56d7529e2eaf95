// The converter, its context, and the SOAP request's envelope and
// header (the body is in QKLSoapBody.cpp, the reply in QKLSoapResponse.cpp).
#include "qkl/soap/QKLSoapConverter.h"

#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessage.h"

namespace QKL {

const char* const QKLSoapConverter::VersionMismatchText = "Version mismatch";
const char* const QKLSoapConverter::WrongPacketHeaderText = "Wrong packet header";
const char* const QKLSoapConverter::HeaderNotConvertedText = "Soap header cannot be converted to QKAgent message";
const char* const QKLSoapConverter::NoOperationText = "No QKAgent operation was specified";
const char* const QKLSoapConverter::BodyNotParsedText = "Cannot parse soap message body";
const char* const QKLSoapConverter::NoTargetOperatorText = "No QKAgent target operator was specified";
const char* const QKLSoapConverter::BodyNotConvertedText = "Soap message body cannot be converted to QKAgent message";
const char* const QKLSoapConverter::SystemErrorText = "Cannot get system error from QKAgent message";
const char* const QKLSoapConverter::OperatorErrorText = "Cannot get operator error from QKAgent message";
const char* const QKLSoapConverter::NoCookieText = "Cannot get cookie!";
const char* const QKLSoapConverter::NoOperationNameText = "Cannot get original operation name from QKAgent message";
const char* const QKLSoapConverter::NoOperationNamespaceText =
    "Cannot get original operation namespace from QKAgent message";
const char* const QKLSoapConverter::NoResponseText = "Cannot get response from QKAgent message";
const char* const QKLSoapConverter::HeaderNotRenderedText = "Cannot parse QKAgent message";
const char* const QKLSoapConverter::UnsupportedVersionText = "Unsupported soap version";
const char* const QKLSoapConverter::RespondedWithErrorText = "QKAgent responded with error";

namespace {

const ignorecase_string PACKET_HEADER = "packet_header";
const ignorecase_string PACKET = QKLMessage::REPLY_ROOT;
const ignorecase_string PACKET_HEADER_START = "<packet_header";
const ignorecase_string PACKET_HEADER_END = "/packet_header>";
const ignorecase_string SELF_CLOSE = "/>";
const ignorecase_string PACKET_CLOSE = "</packet>";
const ignorecase_string EMPTY_PACKET_CLOSE = "></packet>";
const ignorecase_string EMPTY_COOKIE = "<cookie></cookie>";
const ignorecase_string NAMESPACE_ATTRIBUTE = " xmlns";

// The packet header element of a SOAP Header, from "<packet_header" through
// "/packet_header>" or, self-closing, through the first "/>"; -1 when the
// header has none of either end, 1 when it has no packet header at all.
int cutPacketHeader(const ignorecase_string& header, ignorecase_string& element) {
    const size_t start = header.find(PACKET_HEADER_START);
    if (start == ignorecase_string::npos) return 1;
    size_t end = header.find(PACKET_HEADER_END, start);
    if (end != ignorecase_string::npos) {
        end += PACKET_HEADER_END.size();
    } else {
        end = header.find(SELF_CLOSE, start);
        if (end == ignorecase_string::npos) return -1;
        end += SELF_CLOSE.size();
    }
    element = header.substr(start, end - start);
    return 0;
}

bool endsWith(const ignorecase_string& text, const ignorecase_string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

void QKLSoapConvertContext::init() {
    m_version = SOAP_1_1;
    m_fault.reset();
    m_message.clear();
}

QKLSoapConverter::QKLSoapConverter() : m_context(new QKLSoapConvertContext) {}

QKLSoapConverter::~QKLSoapConverter() {}

int QKLSoapConverter::fail(QKLSoapFault::Code code, const char* text) {
    m_context->setFault(makeFault(m_context->getSoapVersion(), code, text));
    return -1;
}

QKLSoapFault* QKLSoapConverter::makeFault(SoapVersion version, QKLSoapFault::Code code, const std::string& text) const {
    if (m_strict && version == SOAP_1_2) return new QKLSoapFault12Strict(code, text);
    return QKLSoapFault::createSoapFault(version, code, text);
}

std::string QKLSoapConverter::getSoapURIByVersion(SoapVersion version) {
    for (const SoapVersionMap::value_type& entry : soapVersionMap())
        if (entry.second == version) return entry.first;
    return std::string();
}

int QKLSoapConverter::soapToQklmsg(const char* soapText, QKLMessage& msg) {
    m_context->init();
    m_context->setMessage(soapText != nullptr ? ignorecase_string(soapText) : ignorecase_string());
    if (m_strict) return strictToQklmsg(soapText, msg);
    const std::unique_ptr<QKLSoapEnvelope> envelope(QKLSoapEnvelope::fromText(soapText));
    if (!envelope) return fail(QKLSoapFault::VersionMismatch, VersionMismatchText);
    const SoapVersionMap::const_iterator version = soapVersionMap().find(envelope->getNamespaceURI());
    if (version == soapVersionMap().end()) return fail(QKLSoapFault::VersionMismatch, VersionMismatchText);
    m_context->setSoapVersion(version->second);

    if (convertHeader(envelope->getHeader().c_str(), msg) != 0) return -1;
    return convertBody(envelope->getBody().c_str(), msg) != 0 ? -1 : 0;
}

int QKLSoapConverter::convertHeader(const char* headerText, QKLMessage& msg) {
    if (m_strict) return convertStrictHeader(headerText, msg);
    ignorecase_string packet;
    const int cut = headerText != nullptr ? cutPacketHeader(ignorecase_string(headerText), packet) : 1;
    if (cut < 0) return fail(QKLSoapFault::ClientError, WrongPacketHeaderText);
    if (cut > 0) {
        // No packet header: allowed, the message gets an empty root.
        msg.create(QKLMessage::REPLY_ROOT);
        return 0;
    }
    return convertPacket(packet, msg);
}

int QKLSoapConverter::convertPacket(ignorecase_string packet, QKLMessage& msg) {
    srch_repl(packet, PACKET_HEADER, PACKET);
    removeNamespaces(packet);
    QKL_ASSERT(!packet.empty());
    if (endsWith(packet, SELF_CLOSE))
        packet.replace(packet.size() - SELF_CLOSE.size(), SELF_CLOSE.size(), EMPTY_PACKET_CLOSE);
    const size_t close = packet.rfind(PACKET_CLOSE);
    if (close == ignorecase_string::npos) return fail(QKLSoapFault::ClientError, WrongPacketHeaderText);
    packet.insert(close, EMPTY_COOKIE);
    if (msg.fromText(packet.c_str(), nullptr) < 0) return fail(QKLSoapFault::ClientError, HeaderNotConvertedText);
    return 0;
}

void QKLSoapConverter::removeNamespaces(ignorecase_string& text) {
    size_t at = 0;
    while ((at = text.find(NAMESPACE_ATTRIBUTE, at)) != ignorecase_string::npos) {
        const size_t quote = text.find('"', at);
        if (quote == ignorecase_string::npos) {
            text.erase(at, NAMESPACE_ATTRIBUTE.size());
            continue;
        }
        const size_t endQuote = text.find('"', quote + 1);
        text.erase(at, endQuote == ignorecase_string::npos ? ignorecase_string::npos : endQuote + 1 - at);
    }
}

}  // namespace QKL
