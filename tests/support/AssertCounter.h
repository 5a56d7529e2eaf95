// Test support: silences QKL_ASSERT reports for the life of the object and
// counts those made meanwhile, so a test can pin that a call asserted (or not).
#ifndef QKL_TESTS_SUPPORT_ASSERTCOUNTER_H
#define QKL_TESTS_SUPPORT_ASSERTCOUNTER_H

#include "qkl/common/QKLAssert.h"

namespace QKLTest {

class AssertCounter {
public:
    AssertCounter() : m_previous(QKL::setAssertHandler(&quiet)), m_start(QKL::assertReports()) {}
    ~AssertCounter() { QKL::setAssertHandler(m_previous); }
    AssertCounter(const AssertCounter&) = delete;
    AssertCounter& operator=(const AssertCounter&) = delete;

    // Assertions reported since construction.
    unsigned long reports() const { return QKL::assertReports() - m_start; }

private:
    static void quiet(const char*, const char*, int) {}

    QKL::AssertHandler m_previous;
    unsigned long m_start;
};

}  // namespace QKLTest

#endif
