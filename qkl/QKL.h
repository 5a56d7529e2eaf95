// Umbrella header of libQKLMessage: includes every public header of the library.
#ifndef QKL_QKL_H
#define QKL_QKL_H

// The companion library (libQKLCommon).
#include "qkl/common/QKLCommon.h"

// Subsystem 7: string utilities and shared types.
#include "qkl/util/CharArray.h"
#include "qkl/util/ignorecase.h"

// Subsystem 4: vocabularies and the per-document ID map.
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLLookASide.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"
#include "qkl/vocabulary/SearchTblItem.h"

// Subsystems 2 and 3: the binary format and document.
#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/CopyAssistant.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/NodeValue.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"

// Subsystem 1: the message model.
#include "qkl/message/QKLHandles.h"
#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"
#include "qkl/message/QKLSessionID.h"

// Subsystem 5: the XML text form's namespaces.
#include "qkl/text/XmlNamespaces.h"

// Subsystem 6: the SOAP bridge.
#include "qkl/soap/QKLSoapConverter.h"
#include "qkl/soap/QKLSoapEnvelope.h"
#include "qkl/soap/QKLSoapHandles.h"

#endif
