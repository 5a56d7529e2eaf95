// Owning handles for the SOAP bridge, header-only, in the manner of
// qkl/message/QKLHandles.h: an envelope the caller owns is deleted by
// SoapEnvelopePtr, and envelope text comes back in a Buffer (freed with free()).
#ifndef QKL_SOAP_QKLSOAPHANDLES_H
#define QKL_SOAP_QKLSOAPHANDLES_H

#include <memory>

#include "qkl/message/QKLHandles.h"
#include "qkl/soap/QKLSoapConverter.h"
#include "qkl/soap/QKLSoapEnvelope.h"

namespace QKL {

using SoapEnvelopePtr = std::unique_ptr<QKLSoapEnvelope>;

// The reply to a converted request as an envelope of `version`: the response,
// or a Server/Receiver fault when the reply holds "error" elements. Null when
// the converter refuses, with its fault in converter.getFault(). As with the
// raw qklmsgToSoap, the reply's "data" element is deleted on the way.
inline SoapEnvelopePtr toSoap(QKLSoapConverter& converter, QKLMessage& reply, SoapVersion version) {
    QKLSoapEnvelope* envelope = nullptr;
    if (converter.qklmsgToSoap(reply, version, envelope) != 0) return SoapEnvelopePtr();
    return SoapEnvelopePtr(envelope);
}

// An envelope's text (a fault's too); size() is its strlen. An empty Buffer
// when there is none.
inline Buffer toText(QKLSoapEnvelope& envelope) { return Buffer::ofText(envelope.toText()); }

}  // namespace QKL

#endif
