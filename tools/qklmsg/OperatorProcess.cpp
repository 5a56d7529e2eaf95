#include "OperatorProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

extern char** environ;

namespace qklmsg {

namespace {

using Clock = std::chrono::steady_clock;

const char* const SHELL = "/bin/sh";
// More output than any answer needs ends the run, so one operator cannot take the server's memory.
const std::size_t MAX_OUTPUT_BYTES = std::size_t(64) << 20;
const char* const TOO_MUCH_OUTPUT_TEXT = "operator output is larger than 64 MiB";
// While the operator has closed its output but not yet ended, without a pidfd to wait on.
const int EXIT_POLL_MILLISECONDS = 2;

// A file descriptor closed when it goes out of scope (or by reset).
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }
    int get() const { return m_fd; }
    bool open() const { return m_fd >= 0; }
    void reset(int fd = -1) {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd;
};

std::string systemText(const char* what, int error) {
    return std::string(what) + ": " + std::generic_category().message(error);
}

// A pipe whose two ends do not reach other children; `nonBlocking` is serve's end (0 read, 1 write).
bool makePipe(Descriptor ends[2], int nonBlocking) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    ends[0].reset(fds[0]);
    ends[1].reset(fds[1]);
    return ::fcntl(fds[nonBlocking], F_SETFL, O_NONBLOCK) == 0;
}

// Starts the shell on the two child ends; -1 with `error` set when it cannot be started.
pid_t spawnShell(const std::string& command, int childInput, int childOutput, int& error) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, childInput, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOutput, STDOUT_FILENO);
    // serve's sockets are not close-on-exec: no client connection may stay open in an operator.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int signal : {SIGPIPE, SIGINT, SIGTERM}) sigaddset(&defaults, signal);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    char* argv[] = {const_cast<char*>("sh"), const_cast<char*>("-c"), const_cast<char*>(command.c_str()), nullptr};
    pid_t pid = -1;
    error = ::posix_spawn(&pid, SHELL, &actions, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? pid : -1;
}

// Reaps the child, waiting as long as it takes; its status.
int reap(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

std::string endText(int status) {
    if (WIFEXITED(status))
        return WEXITSTATUS(status) == 0 ? std::string()
                                        : "operator exited with status " + std::to_string(WEXITSTATUS(status));
    return "operator was ended by signal " + std::to_string(WTERMSIG(status));
}

// One started operator: feeds its input, gathers its output, waits for its end.
class Exchange {
public:
    Exchange(pid_t pid, Descriptor& input, Descriptor& output, const std::string& bytes)
        : m_pid(pid), m_input(input), m_output(output), m_bytes(bytes),
          m_exit(int(::syscall(SYS_pidfd_open, pid, 0))) {
        if (m_bytes.empty()) m_input.reset();
    }

    // Until the output ends and the child has exited, or the deadline passes.
    void run(Clock::time_point deadline, int timeoutSeconds, OperatorRun& result) {
        while (m_output.open() || !m_ended) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0)
                return killGroup(result, "operator timed out after " + std::to_string(timeoutSeconds) + " s");
            if (!step(int(left), result.output))
                return killGroup(result, systemText("operator could not be watched", errno));
            if (result.output.size() > MAX_OUTPUT_BYTES) return killGroup(result, TOO_MUCH_OUTPUT_TEXT);
        }
        result.failure = endText(m_status);
    }

private:
    // Kills what is left of the group (a child that left its output open in a
    // process of its own, or the child itself) and reaps the child.
    void killGroup(OperatorRun& result, const std::string& why) {
        ::kill(-m_pid, SIGKILL);
        if (!m_ended) reap(m_pid);
        result.failure = why;
    }

    // Records the child's end if it has come.
    void noteEnd() {
        if (m_ended || ::waitpid(m_pid, &m_status, WNOHANG) != m_pid) return;
        m_ended = true;
        m_exit.reset();
    }

    // One wait for the pipes and the child's end, and what they allow; false when poll fails.
    bool step(int milliseconds, std::string& output) {
        pollfd watched[3];
        nfds_t count = 0;
        if (m_input.open()) watched[count++] = {m_input.get(), POLLOUT, 0};
        if (m_output.open()) watched[count++] = {m_output.get(), POLLIN, 0};
        if (m_exit.open()) watched[count++] = {m_exit.get(), POLLIN, 0};
        if (count == 0) milliseconds = std::min(milliseconds, EXIT_POLL_MILLISECONDS);
        if (::poll(watched, count, milliseconds) < 0) return errno == EINTR;
        for (nfds_t at = 0; at < count; ++at) {
            if (watched[at].revents == 0) continue;
            if (watched[at].fd == m_input.get()) feed();
            if (watched[at].fd == m_output.get()) gather(output);
            if (watched[at].fd == m_exit.get()) noteEnd();
        }
        if (!m_exit.open() && !m_output.open()) noteEnd();
        return true;
    }

    // Writes what the pipe takes; an operator that stops reading (EPIPE) just gets no more.
    void feed() {
        const ssize_t written = ::write(m_input.get(), m_bytes.data() + m_fed, m_bytes.size() - m_fed);
        if (written > 0) m_fed += std::size_t(written);
        if (m_fed == m_bytes.size() || (written < 0 && errno != EAGAIN && errno != EINTR)) m_input.reset();
    }

    void gather(std::string& output) {
        char chunk[65536];
        const ssize_t got = ::read(m_output.get(), chunk, sizeof chunk);
        if (got > 0) output.append(chunk, std::size_t(got));
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) m_output.reset();
    }

    const pid_t m_pid;
    Descriptor& m_input;
    Descriptor& m_output;
    const std::string& m_bytes;
    std::size_t m_fed = 0;
    Descriptor m_exit;  // the child's pidfd, readable once it has exited; none on kernels without pidfds
    bool m_ended = false;
    int m_status = 0;
};

}  // namespace

OperatorRun runOperatorProcess(const std::string& command, const std::string& input, int timeoutSeconds) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeoutSeconds);
    OperatorRun result;
    Descriptor toChild[2], fromChild[2];
    if (!makePipe(toChild, 1) || !makePipe(fromChild, 0)) {
        result.failure = systemText("operator could not be started", errno);
        return result;
    }
    int error = 0;
    const pid_t pid = spawnShell(command, toChild[0].get(), fromChild[1].get(), error);
    if (pid < 0) {
        result.failure = systemText("operator could not be started", error);
        return result;
    }
    // Only the child keeps its ends, so its exit ends the output.
    toChild[0].reset();
    fromChild[1].reset();
    Exchange(pid, toChild[1], fromChild[0], input).run(deadline, timeoutSeconds, result);
    return result;
}

}  // namespace qklmsg
