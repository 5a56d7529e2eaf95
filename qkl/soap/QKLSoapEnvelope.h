// SOAP envelopes and faults, as text.
//
// An envelope holds three pieces of text: its SOAP namespace URI, its Header
// element and its Body element. fromText cuts them out of a request by plain,
// case-insensitive text search (no XML parser); assembly() writes a reply
// envelope, always with the prefix "soap". The faults write their SOAP 1.1 or
// SOAP 1.2 Fault element into the body.
//
// Buffers returned by toText()/assembly() come from malloc; release them with free.
#ifndef QKL_SOAP_QKLSOAPENVELOPE_H
#define QKL_SOAP_QKLSOAPENVELOPE_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace QKL {

// The SOAP envelope namespaces, one constant each.
inline constexpr char Soap11EnvelopeNamespace[] = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr char Soap12EnvelopeNamespace[] = "http://www.w3.org/2003/05/soap-envelope";

enum SoapVersion { SOAP_NONE = 0, SOAP_1_1 = 1, SOAP_1_2 = 2 };

// Envelope namespace URI (case-sensitive) -> SOAP version.
typedef std::map<std::string, SoapVersion> SoapVersionMap;

// The three pairs the map is built from, all inserted. The third maps the empty
// URI to SOAP_NONE, deliberately: an envelope whose namespace declaration is
// empty (xmlns:soap="") passes the version look-up with version 0 instead of
// failing it (the converter then stores no fault object for its later failures).
extern const std::pair<const char*, SoapVersion> Map_SoapVersionMap_Array[3];

// The map, built once from Map_SoapVersionMap_Array and read-only afterwards.
const SoapVersionMap& soapVersionMap();

class QKLSoapEnvelope {
public:
    explicit QKLSoapEnvelope(const std::string& namespaceURI);
    QKLSoapEnvelope(const QKLSoapEnvelope&) = default;
    QKLSoapEnvelope& operator=(const QKLSoapEnvelope&) = default;
    virtual ~QKLSoapEnvelope();

    // The envelope text in a malloc buffer (caller frees); here assembly().
    virtual char* toText();
    // `<soap:Envelope xmlns:soap="URI" xmlns:xsd="..." xmlns:xsi="...">` and a
    // line end, then "<soap:Header>\n" + header + "</soap:Header>\n" only when
    // the header is not empty, then "<soap:Body>\n" + body +
    // "</soap:Body>\n</soap:Envelope>", with no line end after the last tag.
    // Null only when memory runs out.
    virtual char* assembly();

    // Cuts an envelope out of a request (caller owns the result). Every search
    // ignores letter case and none reads past the text's terminating zero:
    //  - the root is found by ":envelope " WITH its blank, deliberately, so a
    //    root tag name followed by a line end or tab is not recognised;
    //  - the prefix is the text between the last "<" before it and the ":";
    //  - the URI is the text between the two double quotes behind the first
    //    "xmlns:" + prefix after that "<" (a plain text match);
    //  - the Header is "<prefix:Header" through "</prefix:Header>", or empty;
    //  - the Body is "<prefix:Body" through the one character behind
    //    "</prefix:Body" (cut short when the text ends there).
    // Null for a null text or when the root, its "<", the declaration, either
    // quote, the Body or its closing tag is missing.
    static QKLSoapEnvelope* fromText(const char* text);

    const std::string& getNamespaceURI() const { return m_namespaceURI; }
    const std::string& getHeader() const { return m_header; }
    const std::string& getBody() const { return m_body; }
    void setHeader(const std::string& header) { m_header = header; }
    void setBody(const std::string& body) { m_body = body; }

protected:
    std::string m_namespaceURI;
    std::string m_header;
    std::string m_body;
};

class QKLSoapFault : public QKLSoapEnvelope {
public:
    enum Code : std::int32_t { VersionMismatch = 0, MustUnderstand = 1, ClientError = 2, ServerError = 3 };

    // A fault for `version` (SOAP_1_1 or SOAP_1_2; caller owns it); null for
    // any other version, which callers store as "no fault".
    static QKLSoapFault* createSoapFault(SoapVersion version, Code code, const std::string& text);

    // "VersionMismatch" for 0, "MustUnderstand" for 1, empty otherwise; the
    // SOAP 1.1 and 1.2 faults name codes 2 and 3 and assert on unknown codes.
    virtual std::string faultCodeToString(Code code) const;

    Code getCode() const { return m_code; }
    const std::string& getFaultString() const { return m_faultString; }
    const std::string& getDetail() const { return m_detail; }
    void setDetail(const std::string& detail) { m_detail = detail; }

protected:
    QKLSoapFault(const std::string& namespaceURI, Code code, const std::string& text);

    // "<detail>\n" + detail + "</detail>\n" when the detail is not empty, else "".
    std::string detailBlock() const;
    // A version's name of a code: `client` for 2, `server` for 3, the base's
    // names for 0 and 1; any other code asserts and gives "".
    std::string versionCodeName(Code code, const char* client, const char* server) const;

    Code m_code;
    std::string m_faultString;
    std::string m_detail;
};

// The fault string goes in as it is, without escaping: callers pass plain text.
class QKLSoapFault11 : public QKLSoapFault {
public:
    QKLSoapFault11(Code code, const std::string& text);
    // Writes <soap:Fault> with faultcode "soap:" + code string, faultstring
    // and the optional detail into the body, then returns assembly().
    char* toText() override;
    // 2 "Client", 3 "Server", 0 and 1 as the base; an unknown code asserts and gives "".
    std::string faultCodeToString(Code code) const override;
};

class QKLSoapFault12 : public QKLSoapFault {
public:
    QKLSoapFault12(Code code, const std::string& text);
    // Writes <soap:Fault> with soap:Code/soap:Value "soap:" + code string,
    // soap:Reason/soap:Text and the optional detail into the body, then
    // returns assembly().
    char* toText() override;
    // 2 "Sender", 3 "Receiver", 0 and 1 as the base; an unknown code asserts and gives "".
    std::string faultCodeToString(Code code) const override;

protected:
    // The Fault element with the given Text start tag and detail block.
    char* writeFault(const char* textStart, const std::string& detail);
};

// The SOAP 1.2 fault of a strict converter (QKLSoapConverter::setStrict), as
// schema-validating clients read it: xml:lang="en" on soap:Text, and the
// detail in the envelope's namespace, "<soap:Detail>\n" + detail +
// "</soap:Detail>\n", instead of the unqualified "<detail>" that such clients drop.
class QKLSoapFault12Strict : public QKLSoapFault12 {
public:
    QKLSoapFault12Strict(Code code, const std::string& text);
    char* toText() override;
};

}  // namespace QKL

#endif
