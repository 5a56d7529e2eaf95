// QKL_ASSERT: the companion library's assertion hook. It reports a failed
// condition (text, file, line) on standard error and RETURNS: it never aborts,
// so code after a failed QKL_ASSERT must still be safe.
#ifndef QKL_COMMON_QKLASSERT_H
#define QKL_COMMON_QKLASSERT_H

namespace QKL {

// Called for every failed assertion; the default handler writes one line to stderr.
typedef void (*AssertHandler)(const char* condition, const char* file, int line);

// Installs a handler (null restores the default) and returns the previous one.
AssertHandler setAssertHandler(AssertHandler handler);

// Number of failed assertions reported since the process started (atomic),
// so tests can check that a condition was, or was not, reported.
unsigned long assertReports();

// Reports a failed condition through the current handler; always returns.
void assertFailed(const char* condition, const char* file, int line);

}  // namespace QKL

#define QKL_ASSERT(cond) \
    ((cond) ? (void)0 : ::QKL::assertFailed(#cond, __FILE__, __LINE__))

#endif
