// Umbrella header of libQKLMessage: includes every public header of the library.
#ifndef QKL_QKL_H
#define QKL_QKL_H

#include "qkl/common/QKLCommon.h"
#include "qkl/util/CharArray.h"

#endif
