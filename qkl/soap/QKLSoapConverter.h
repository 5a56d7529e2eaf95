// QKLSoapConverter: the SOAP bridge between web-service calls and messages.
//
// soapToQklmsg turns a SOAP 1.1/1.2 request into a message:
//   - the SOAP Header's <packet_header> becomes the message's "packet" root
//     (its attributes the header fields, its children the root's children),
//     always with an empty "cookie" element;
//   - the one operation element of the Body goes under "data" / operator,
//     where the operator is the header's "target" or else the last path
//     segment of the operation's namespace URI, lower-cased;
//   - the operation's name (lower-cased; strict: as written) and namespace URI go into the cookie
//     (children 1322 "request" and 1026 "name"), and the version segment of
//     the URI (".../4.5.0/operator") into the message version.
// qklmsgToSoap turns the reply back: "<operation>Response" in the client's
// namespace, the reply header as the SOAP Header's <packet_header>, or a
// Server/Receiver fault carrying the reply's "error" elements.
//
// Failures are SOAP faults kept in the converter's context (getFault()), made
// for the request's SOAP version, ready to be sent back.
//
// What the bridge does not accept (matching is plain, case-insensitive text
// search, not XML parsing; "strict:" says what strict mode changes):
//   - a prefixed packet header (<qk:packet_header>): not recognised, the
//     SOAP Header is then ignored; strict: read like an unprefixed one;
//   - Header or Body written with another prefix than the Envelope's, even
//     one bound to the same namespace (suds: <ns1:Body> in <SOAP-ENV:Envelope>):
//     "Version mismatch"; strict: found by namespace and local name;
//   - CDATA sections in the packet header or the operation (the XML reader
//     rejects them);
//   - an xsi:type value whose prefix is declared only outside the operation
//     element (xsi:type="xsd:int" with xsd declared on the Envelope): only
//     the operation's text is parsed, with xmlns:xsi added, and the reader
//     refuses an undeclared type prefix;
//   - a root tag name followed by a line end or tab instead of a blank
//     (":envelope " is searched with its blank); strict: any blank;
//   - an unprefixed operation whose start tag has no blank (no attributes);
//     strict: accepted when a default namespace is in scope;
//   - a self-closing operation element (<op xmlns="..."/>): the xsi
//     declaration is inserted after its "/" and the reader rejects the text;
//     strict: an operation without arguments;
//   - a Body whose first element is a comment or declaration ("<!"): SEE THE
//     HAZARD below; strict: a comment is passed over, a declaration refused.
//
// Strict mode (setStrict(true), off by default; the default forms above stay
// as they are) reads the request as namespaced XML with a bounded scan of its
// tags: the Envelope is the root element in a SOAP namespace, Header and Body
// its children in that namespace, the packet header the Header's first child
// named packet_header (any namespace; the prefixes bound to its own namespace
// are dropped, so it converts exactly as the same header unprefixed), the
// operation the Body's first child element, its namespace the one its prefix
// is bound to. The cookie keeps the operation's own case ("GetList", answered
// "GetListResponse"; the default lower-cases it). Text that is not
// well-formed below a known Envelope is refused with "Cannot parse soap
// message body". SOAP 1.2 faults are QKLSoapFault12Strict: a qualified
// <soap:Detail> and xml:lang="en" on <soap:Text>.
//
// One converter serves one conversion at a time (one thread); separate
// converters are independent. No locks are taken.
#ifndef QKL_SOAP_QKLSOAPCONVERTER_H
#define QKL_SOAP_QKLSOAPCONVERTER_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qkl/soap/QKLSoapEnvelope.h"
#include "qkl/util/ignorecase.h"
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {

class QKLMessage;

// The state of one conversion: the SOAP version, at most one fault, and the
// request text (searched again for namespace prefixes).
class QKLSoapConvertContext {
public:
    QKLSoapConvertContext() { init(); }
    QKLSoapConvertContext(const QKLSoapConvertContext&) = delete;
    QKLSoapConvertContext& operator=(const QKLSoapConvertContext&) = delete;

    // Version SOAP_1_1, no fault, empty message.
    void init();
    void setSoapVersion(SoapVersion version) { m_version = version; }
    SoapVersion getSoapVersion() const { return m_version; }
    // Takes ownership; destroys the earlier fault. Null clears it.
    void setFault(QKLSoapFault* fault) { m_fault.reset(fault); }
    // The held fault or null; the context keeps ownership.
    QKLSoapFault* getFault() const { return m_fault.get(); }
    void setMessage(const ignorecase_string& text) { m_message = text; }
    ignorecase_string getMessage() const { return m_message; }
    const ignorecase_string& message() const { return m_message; }

private:
    SoapVersion m_version;
    std::unique_ptr<QKLSoapFault> m_fault;
    ignorecase_string m_message;
};

class QKLSoapConverter {
public:
    // The namespace base of the answers: the vocabulary's
    // "/webservices/qkl/" base, so that a 4.0.0 answer's packet_header stands
    // in the protocol namespace 297 ".../qkl/4.0.0/protocol". Ends in "/".
    static constexpr char NamespaceBase[] = QKL_VOCABULARY_BASE_URI_TEXT "/webservices/qkl/";

    // The failure texts, one constant each.
    static const char* const VersionMismatchText;            // "Version mismatch"
    static const char* const WrongPacketHeaderText;          // "Wrong packet header"
    static const char* const HeaderNotConvertedText;         // "Soap header cannot be converted to QKAgent message"
    static const char* const NoOperationText;                // "No QKAgent operation was specified"
    static const char* const BodyNotParsedText;              // "Cannot parse soap message body"
    static const char* const NoTargetOperatorText;           // "No QKAgent target operator was specified"
    static const char* const BodyNotConvertedText;           // "Soap message body cannot be converted to QKAgent message"
    static const char* const SystemErrorText;                // "Cannot get system error from QKAgent message"
    static const char* const OperatorErrorText;              // "Cannot get operator error from QKAgent message"
    static const char* const NoCookieText;                   // "Cannot get cookie!"
    static const char* const NoOperationNameText;            // "Cannot get original operation name from QKAgent message"
    static const char* const NoOperationNamespaceText;       // "Cannot get original operation namespace from QKAgent message"
    static const char* const NoResponseText;                 // "Cannot get response from QKAgent message"
    static const char* const HeaderNotRenderedText;          // "Cannot parse QKAgent message"
    static const char* const UnsupportedVersionText;         // "Unsupported soap version"
    static const char* const RespondedWithErrorText;         // "QKAgent responded with error"

    QKLSoapConverter();
    QKLSoapConverter(const QKLSoapConverter&) = delete;
    QKLSoapConverter& operator=(const QKLSoapConverter&) = delete;
    virtual ~QKLSoapConverter();

    // The two halves of soapToQklmsg, replaceable by a derived converter; 0 or -1
    // with the fault set. headerText is the whole Header element or null:
    // without a <packet_header> the message gets an empty "packet" root.
    // In strict mode both take the strict forms; the prefixes declared on the
    // Envelope are in scope for them only while soapToQklmsg runs.
    virtual int convertHeader(const char* headerText, QKLMessage& msg);
    // bodyText is the whole Body element. In the default mode, never returns
    // when the character after its first "<" (after position 0) is "!" (see the HAZARD above).
    virtual int convertBody(const char* bodyText, QKLMessage& msg);

    // A SOAP request into `msg`, an empty message of the caller's protocol.
    // 0, or -1 with the fault in the context; `msg` may then be partly filled
    // and is to be discarded. A version-0 envelope (xmlns:soap="") stores no
    // fault object for its failures, and still returns -1.
    int soapToQklmsg(const char* soapText, QKLMessage& msg);

    // The reply to a converted request into a new envelope (caller owns it,
    // renders it with toText()): 0 with `result` set (a Server/Receiver fault
    // when the reply holds "error" elements), or -1 with `result` null and the
    // fault in the context. The reply's "data" element is deleted on the way
    // (copy the message first to keep it). A reply with no element under
    // "data" (or no operator child) answers an empty Response element.
    int qklmsgToSoap(QKLMessage& reply, SoapVersion version, QKLSoapEnvelope*& result);

    // True when soapToQklmsg(soapText) would never return with this class's
    // convertBody in the default mode (a strict converter always returns): the
    // envelope is found, its version known, and the first "<" inside its Body
    // is followed by "!". Reads only the text; call it on untrusted requests
    // first. (A header failure would end the call earlier; this answers for
    // the body alone, so it may refuse a request that fails anyway.)
    static bool neverCompletes(const char* soapText);

    // Erases every ` xmlns...="..."` declaration (its leading blank included);
    // an unclosed value is erased to the end, a declaration without any quote
    // loses only " xmlns". Element prefixes are left for the reader.
    static void removeNamespaces(ignorecase_string& text);

    // The first URI (in key order) that SoapVersionMap maps to `version`; "" if none.
    static std::string getSoapURIByVersion(SoapVersion version);

    // Strict mode, off by default (the default forms stay as they are); see
    // above for what it changes. Kept across conversions.
    void setStrict(bool on) { m_strict = on; }
    bool strict() const { return m_strict; }

    SoapVersion getSoapVersion() const { return m_context->getSoapVersion(); }
    QKLSoapFault* getFault() const { return m_context->getFault(); }

protected:
    // createSoapFault(context version, code, text) into the context; returns -1.
    int fail(QKLSoapFault::Code code, const char* text);
    QKLSoapConvertContext& context() { return *m_context; }
    // A fault of this converter's form: createSoapFault, or in strict mode
    // for SOAP 1.2 a QKLSoapFault12Strict. Null for a version without faults.
    QKLSoapFault* makeFault(SoapVersion version, QKLSoapFault::Code code, const std::string& text) const;

private:
    // The strict forms (QKLSoapStrict.cpp).
    int strictToQklmsg(const char* soapText, QKLMessage& msg);
    int convertStrictHeader(const char* headerText, QKLMessage& msg);
    int convertStrictBody(const char* bodyText, QKLMessage& msg);
    // Shared by both forms: the packet header's text, "<packet_header ...>"
    // through its end, into the message's root.
    int convertPacket(ignorecase_string packet, QKLMessage& msg);
    // The operation element's text (xmlns:xsi already in its start tag) under
    // data / operator, with the target, the cookie (`name`, `uri`) and the version.
    int fileOperation(const ignorecase_string& operation, const std::string& name, const std::string& uri,
                      QKLMessage& msg);

    std::unique_ptr<QKLSoapConvertContext> m_context;
    bool m_strict = false;
    // In strict mode, the namespace declarations in scope at the envelope's
    // Header and Body while soapToQklmsg runs (those of the Envelope element).
    std::vector<std::pair<std::string, std::string>> m_envelopeScope;
};

}  // namespace QKL

#endif
