// Iterator test support: a "packet" message with an iterator on its root, which must end its
// life without an assertion report; where the iterator stands; the bytes the message holds.
#ifndef QKL_TESTS_BINARY_PACKETDOC_H
#define QKL_TESTS_BINARY_PACKETDOC_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "binary/DocumentCheck.h"
#include "qkl/QKL.h"
#include "support/AssertCounter.h"

namespace QKLTest {

// Where an iterator stands: its depth and the byte position of its element.
inline std::string where(const QKL::QKLBinaryIterator& it) {
    return std::to_string(it.path().depth()) + "@" + std::to_string(it.path().current().offset);
}

struct PacketDoc {
    AssertCounter asserts;
    QKL::auto_destroy<QKL::QKLBinary> msg{new QKL::QKLBinary()};
    std::unique_ptr<QKL::QKLBinaryIterator> it{msg->create("packet") == 0 ? counted() : nullptr};
    ~PacketDoc() { EXPECT_EQ(0u, asserts.reports()); }
    QKL::QKLBinaryIterator* counted() { return static_cast<QKL::QKLBinaryIterator*>(msg->newIterator()); }
    std::string bytes() const { return BinaryDoc::held(*msg->internals()); }
};

}  // namespace QKLTest

#endif
