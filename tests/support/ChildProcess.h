// Test support: runs a call that must not return in a forked child and
// reports how the child ended. Used for the calls that never return on purpose
// (srch_repl with an empty pattern, a SOAP Body that starts with a comment).
#ifndef QKL_TESTS_SUPPORT_CHILDPROCESS_H
#define QKL_TESTS_SUPPORT_CHILDPROCESS_H

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <ostream>
#include <thread>

namespace QKLTest {

enum class ChildEnd { StillRunning, Returned, Threw, Signalled, ExitedOtherwise, ForkFailed };

inline const int kReturnedStatus = 0;  // the child got past the call
inline const int kThrewStatus = 3;     // the call threw (e.g. bad_alloc under RLIMIT_AS)
inline const unsigned kChildLifetimeSeconds = 10;

// Runs in the child only and never returns into GoogleTest, whose remaining
// tests must not run twice.
[[noreturn]] inline void childBody(const std::function<void()>& setup, const std::function<void()>& call) {
    // SIGALRM ends the child if the test process dies before killing it; the
    // disposition and mask are inherited, so make sure the alarm is deliverable.
    signal(SIGALRM, SIG_DFL);
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    alarm(kChildLifetimeSeconds);
    try {
        setup();
        call();
    } catch (...) {
        _exit(kThrewStatus);
    }
    _exit(kReturnedStatus);
}

// Readable failure messages instead of the enum's bytes.
inline std::ostream& operator<<(std::ostream& os, ChildEnd end) {
    static const char* const names[] = {"still running", "returned", "threw", "killed by a signal",
                                        "exited with an unexpected status", "fork failed"};
    return os << names[static_cast<int>(end)];
}

inline ChildEnd endOf(int status) {
    if (WIFSIGNALED(status)) return ChildEnd::Signalled;
    if (WEXITSTATUS(status) == kReturnedStatus) return ChildEnd::Returned;
    if (WEXITSTATUS(status) == kThrewStatus) return ChildEnd::Threw;
    return ChildEnd::ExitedOtherwise;
}

// Polls the child for about `wait`; a child still running is killed and
// reaped, so no test leaves a process behind. Not a timing assertion: a slow
// or loaded machine cannot fail it, it only gives the child less time to return.
inline ChildEnd watchChild(pid_t pid, std::chrono::milliseconds wait) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return endOf(status);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    kill(pid, SIGKILL);
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return ChildEnd::StillRunning;
}

inline ChildEnd runInChild(const std::function<void()>& setup, const std::function<void()>& call) {
    const pid_t pid = fork();
    if (pid < 0) return ChildEnd::ForkFailed;
    if (pid == 0) childBody(setup, call);
    return watchChild(pid, std::chrono::milliseconds(200));
}

inline void noSetup() {}

}  // namespace QKLTest

#endif
