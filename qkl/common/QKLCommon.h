// The companion-library interfaces that libQKLMessage calls (libQKLCommon).
#ifndef QKL_COMMON_QKLCOMMON_H
#define QKL_COMMON_QKLCOMMON_H

#include "qkl/common/Base64.h"
#include "qkl/common/GenerateID.h"
#include "qkl/common/NumberText.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/common/QKLLock.h"
#include "qkl/common/StringCompare.h"
#include "qkl/common/TimeText.h"

#endif
