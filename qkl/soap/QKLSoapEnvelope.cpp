// QKLSoapEnvelope: the envelope, cut out of request text and assembled for replies.
#include "qkl/soap/QKLSoapEnvelope.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "qkl/text/XmlNamespaces.h"
#include "qkl/util/MallocCopy.h"
#include "qkl/util/ignorecase.h"

namespace QKL {

const std::pair<const char*, SoapVersion> Map_SoapVersionMap_Array[3] = {
    {Soap11EnvelopeNamespace, SOAP_1_1},
    {Soap12EnvelopeNamespace, SOAP_1_2},
    {"", SOAP_NONE},
};

const SoapVersionMap& soapVersionMap() {
    static const SoapVersionMap map(std::begin(Map_SoapVersionMap_Array), std::end(Map_SoapVersionMap_Array));
    return map;
}

namespace {

// Built at library start, so that no first call pays for it.
const SoapVersionMap& builtAtStart = soapVersionMap();

const ignorecase_string ENVELOPE_TAG = ":envelope ";
const ignorecase_string NAMESPACE_DECLARATION = "xmlns:";

// The element "<prefix:Local" ... "</prefix:Local>" starting at or after
// `from`, or "" when either end is missing. `start` is set to the start tag's
// position (npos when missing).
ignorecase_string findHeader(const ignorecase_string& text, const ignorecase_string& prefix, size_t from,
                             size_t& start) {
    start = text.find("<" + prefix + ":Header", from);
    if (start == ignorecase_string::npos) return ignorecase_string();
    const ignorecase_string closing = "</" + prefix + ":Header>";
    const size_t end = text.find(closing, start);
    if (end == ignorecase_string::npos) return ignorecase_string();
    return text.substr(start, end + closing.size() - start);
}

}  // namespace

QKLSoapEnvelope::QKLSoapEnvelope(const std::string& namespaceURI) : m_namespaceURI(namespaceURI) {}

QKLSoapEnvelope::~QKLSoapEnvelope() {}

char* QKLSoapEnvelope::toText() { return assembly(); }

char* QKLSoapEnvelope::assembly() {
    std::string text = "<soap:Envelope xmlns:soap=\"";
    text += m_namespaceURI;
    text += "\" xmlns:xsd=\"";
    text += XmlSchema;
    text += "\" xmlns:xsi=\"";
    text += XmlSchemaInstance;
    text += "\">\n";
    if (!m_header.empty()) text += "<soap:Header>\n" + m_header + "</soap:Header>\n";
    text += "<soap:Body>\n" + m_body + "</soap:Body>\n</soap:Envelope>";
    return Internal::mallocCopy(text);
}

QKLSoapEnvelope* QKLSoapEnvelope::fromText(const char* text) {
    if (text == nullptr) return nullptr;
    const ignorecase_string request(text);
    const size_t root = request.find(ENVELOPE_TAG);
    if (root == ignorecase_string::npos) return nullptr;
    const size_t open = request.rfind('<', root);
    if (open == ignorecase_string::npos) return nullptr;
    const ignorecase_string prefix = request.substr(open + 1, root - open - 1);

    const size_t declaration = request.find(NAMESPACE_DECLARATION + prefix, open);
    if (declaration == ignorecase_string::npos) return nullptr;
    const size_t quote = request.find('"', declaration);
    if (quote == ignorecase_string::npos) return nullptr;
    const size_t endQuote = request.find('"', quote + 1);
    if (endQuote == ignorecase_string::npos) return nullptr;

    std::unique_ptr<QKLSoapEnvelope> envelope(
        new QKLSoapEnvelope(toStdString(request.substr(quote + 1, endQuote - quote - 1))));
    size_t headerStart;
    envelope->m_header = toStdString(findHeader(request, prefix, endQuote, headerStart));

    const size_t bodyFrom = headerStart != ignorecase_string::npos ? headerStart : endQuote;
    const size_t body = request.find("<" + prefix + ":Body", bodyFrom);
    if (body == ignorecase_string::npos) return nullptr;
    const ignorecase_string closing = "</" + prefix + ":Body";
    const size_t bodyEnd = request.find(closing, body);
    if (bodyEnd == ignorecase_string::npos) return nullptr;
    // Through the one character behind "</prefix:Body" (its ">"); substr stops
    // at the end of the text when there is none.
    envelope->m_body = toStdString(request.substr(body, bodyEnd + closing.size() + 1 - body));
    return envelope.release();
}

}  // namespace QKL
