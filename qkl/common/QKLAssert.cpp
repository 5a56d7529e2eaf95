#include "qkl/common/QKLAssert.h"

#include <atomic>
#include <cstdio>

namespace QKL {
namespace {

void reportToStderr(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "QKL_ASSERT failed: %s (%s:%d)\n", condition, file, line);
}

std::atomic<AssertHandler> g_handler{&reportToStderr};
std::atomic<unsigned long> g_reports{0};

}  // namespace

AssertHandler setAssertHandler(AssertHandler handler) {
    return g_handler.exchange(handler ? handler : &reportToStderr);
}

unsigned long assertReports() { return g_reports.load(); }

void assertFailed(const char* condition, const char* file, int line) {
    ++g_reports;
    g_handler.load()(condition, file, line);
}

}  // namespace QKL
