// The two W3C schema namespaces that the XML text form and the SOAP bridge
// write and read: one constant each.
#ifndef QKL_TEXT_XMLNAMESPACES_H
#define QKL_TEXT_XMLNAMESPACES_H

namespace QKL {

// The XML Schema namespace, declared as "xsd" on every SOAP envelope.
inline constexpr char XmlSchema[] = "http://www.w3.org/2001/XMLSchema";
// The XML Schema instance namespace, declared as "xsi" by the XML writer and
// inserted into every SOAP operation element before it is parsed.
inline constexpr char XmlSchemaInstance[] = "http://www.w3.org/2001/XMLSchema-instance";

}  // namespace QKL

#endif
