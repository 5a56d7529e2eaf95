// The converter's strict forms: the request read as namespaced XML. The
// Envelope, its Header and Body and the Header's packet_header are found by
// namespace and local name whatever prefixes the client chose; a self-closing
// operation element is an operation without arguments; the operation keeps
// its own case in the cookie, so that the answer is "<Operation>Response".
// What the request becomes otherwise is what the default form makes of it.
#include <memory>

#include "qkl/message/QKLMessage.h"
#include "qkl/soap/QKLSoapConverter.h"
#include "qkl/soap/XmlTagScanner.h"
#include "qkl/text/XmlNamespaces.h"

namespace QKL {

namespace {

using Internal::NamespaceBindings;
using Internal::XmlTag;
using Internal::XmlTagScanner;

const char ENVELOPE[] = "Envelope";
const char HEADER[] = "Header";
const char BODY[] = "Body";
const char PACKET_HEADER[] = "packet_header";
const std::string XSI_DECLARATION = std::string(" xmlns:xsi=\"") + XmlSchemaInstance + '"';

enum class Split { Done, NoEnvelope, Malformed };

// The root Envelope in a namespace of SoapVersionMap and its Header and Body
// children in that namespace (Header only before the Body), as element texts.
// NoEnvelope: no such root or no Body; Malformed: the root is known (`version`
// set) but the text below it is not well-formed.
Split splitEnvelope(const std::string& text, SoapVersion& version, std::string& header, std::string& body,
                    NamespaceBindings& scope) {
    XmlTagScanner scanner(text, NamespaceBindings());
    XmlTag root, child, last;
    if (!scanner.next(root) || root.kind == XmlTag::End || root.local != ENVELOPE || !root.bound)
        return Split::NoEnvelope;
    const SoapVersionMap::const_iterator known = soapVersionMap().find(root.uri);
    if (known == soapVersionMap().end()) return Split::NoEnvelope;
    version = known->second;
    scope = scanner.scope();
    bool haveHeader = false, haveBody = false;
    while (root.kind == XmlTag::Start) {
        if (!scanner.next(child)) return Split::Malformed;
        if (child.kind == XmlTag::End) break;
        if (!scanner.closeElement(child, last)) return Split::Malformed;
        if (!child.bound || child.uri != root.uri || haveBody) continue;
        const std::string element = text.substr(child.begin, last.end - child.begin);
        if (child.local == HEADER && !haveHeader) {
            header = element;
            haveHeader = true;
        } else if (child.local == BODY) {
            body = element;
            haveBody = true;
        }
    }
    return haveBody ? Split::Done : Split::NoEnvelope;
}

// The element at `start` through its end, without the prefixes bound to its
// own namespace, so that a prefixed packet header reads as an unprefixed one.
bool unprefixed(const std::string& text, XmlTagScanner& scanner, const XmlTag& start, std::string& element) {
    std::size_t copied = start.begin;
    auto strip = [&](const XmlTag& tag) {
        if (tag.prefix.empty() || !tag.bound || tag.uri != start.uri) return;
        element.append(text, copied, tag.name - copied);
        copied = tag.name + tag.prefix.size() + 1;
    };
    strip(start);
    XmlTag tag = start;
    const std::size_t depth = scanner.depth();
    while (start.kind == XmlTag::Start && !(tag.kind == XmlTag::End && scanner.depth() < depth)) {
        if (!scanner.next(tag)) return false;
        strip(tag);
    }
    element.append(text, copied, tag.end - copied);
    return true;
}

}  // namespace

int QKLSoapConverter::strictToQklmsg(const char* soapText, QKLMessage& msg) {
    std::string header, body;
    SoapVersion version = SOAP_1_1;
    const Split split = splitEnvelope(soapText != nullptr ? soapText : "", version, header, body, m_envelopeScope);
    int result = -1;
    if (split == Split::NoEnvelope) {
        fail(QKLSoapFault::VersionMismatch, VersionMismatchText);
    } else {
        context().setSoapVersion(version);
        if (split == Split::Malformed)
            fail(QKLSoapFault::ClientError, BodyNotParsedText);
        else if (convertHeader(header.c_str(), msg) == 0 && convertBody(body.c_str(), msg) == 0)
            result = 0;
    }
    m_envelopeScope.clear();
    return result;
}

// The first child of the Header named packet_header, in any namespace.
int QKLSoapConverter::convertStrictHeader(const char* headerText, QKLMessage& msg) {
    const std::string text(headerText != nullptr ? headerText : "");
    XmlTagScanner scanner(text, m_envelopeScope);
    XmlTag header, child, last;
    bool closed = !scanner.next(header) || header.kind == XmlTag::Empty;
    while (!closed && scanner.next(child)) {
        closed = child.kind == XmlTag::End;
        if (closed) break;
        if (child.local == PACKET_HEADER) {
            std::string packet;
            if (!unprefixed(text, scanner, child, packet)) break;
            return convertPacket(toIgnoreCase(packet), msg);
        }
        if (!scanner.closeElement(child, last)) break;
    }
    if (!closed || scanner.failed()) return fail(QKLSoapFault::ClientError, WrongPacketHeaderText);
    msg.create(QKLMessage::REPLY_ROOT);
    return 0;
}

// The Body's first child element is the operation, its text running up to
// the Body's end tag as in the default form.
int QKLSoapConverter::convertStrictBody(const char* bodyText, QKLMessage& msg) {
    const std::string text(bodyText != nullptr ? bodyText : "");
    XmlTagScanner scanner(text, m_envelopeScope);
    XmlTag body, op, last;
    if (!scanner.next(body) || body.kind != XmlTag::Start)
        return fail(QKLSoapFault::ClientError, scanner.failed() ? BodyNotParsedText : NoOperationText);
    if (!scanner.next(op)) return fail(QKLSoapFault::ClientError, BodyNotParsedText);
    if (op.kind == XmlTag::End) return fail(QKLSoapFault::ClientError, NoOperationText);
    if (!scanner.closeElement(op, last) || !scanner.closeElement(body, last))
        return fail(QKLSoapFault::ClientError, BodyNotParsedText);
    if (!op.bound || op.uri.empty()) return fail(QKLSoapFault::ClientError, NoTargetOperatorText);

    // xmlns:xsi in the start tag; a self-closing one is opened and closed.
    ignorecase_string operation = toIgnoreCase(text.substr(op.begin, last.begin - op.begin));
    const std::size_t tagEnd = op.end - op.begin;
    if (op.kind == XmlTag::Start) {
        operation.insert(tagEnd - 1, toIgnoreCase(XSI_DECLARATION));
    } else {
        const std::string qualified = text.substr(op.name, op.prefix.size() + !op.prefix.empty() + op.local.size());
        operation.replace(tagEnd - 2, 2, toIgnoreCase(XSI_DECLARATION + "></" + qualified + ">"));
    }
    return fileOperation(operation, op.local, op.uri, msg);
}

}  // namespace QKL
