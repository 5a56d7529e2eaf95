// The tool's side of the library's SOAP bridge (QKLSoapConverter): requests
// into messages and replies into envelopes, with the library's failures
// turned into the tool's refusals. Shared by the SOAP commands and the demo.
#ifndef QKLMSG_SOAPBRIDGE_H
#define QKLMSG_SOAPBRIDGE_H

#include <string>

#include "qkl/QKL.h"

namespace qklmsg {

// The SOAP request text as a new message (caller owns it), converted by
// `converter`, whose SOAP version then answers the request. A request the
// converter would never finish (QKLSoapConverter::neverCompletes) is refused
// before it is tried; a strict converter finishes every request. On failure: the SOAP fault envelope on standard output
// (when the library made one), one line on standard error (ending with the XML
// reader's reason when the converter's failure came from it), and null.
QKL::QKLMessage* messageFromSoap(const std::string& request, const std::string& where,
                                 QKL::QKLSoapConverter& converter);

// Why the XML reader refused the text a failed conversion put into `message`
// ("the XML reader refused the converted text at line L, column C: REASON"); empty
// when the failure had another cause.
std::string readerReason(const QKL::QKLMessage& message);

// The reply as SOAP envelope text in `version` (a response, or the fault that
// carries the reply's errors), ending in a line end. The reply loses its
// "data" element on the way, as the library does. On failure: the fault
// envelope on standard output, one line on standard error, and false.
// `strict` answers in the converter's strict forms (QKLSoapConverter::setStrict).
bool soapFromReply(QKL::QKLMessage& reply, QKL::SoapVersion version, const std::string& where,
                   std::string& envelope, bool strict = false);

}  // namespace qklmsg

#endif
