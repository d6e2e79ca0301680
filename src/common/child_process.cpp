// Running a program with a bound on everything: its run, the reads of its output and the waits
// for its end. A tool stuck on a stale network mount must not hold a whole run.
#include "common/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "common/guarded_spawn.h"
#include "frame/i18n.h"
#include "frame/masking.h"
#include "frame/run_record.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

// How long a stopped group gets between TERM and KILL, and after KILL before it is given up
// (a process in uninterruptible sleep outlives even KILL; we do not wait for it for ever).
constexpr long long GRACE_MS = 3000;

long long nowMs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

/// Copies at most size-1 bytes of [begin, begin+length) into the zeroed buffer.
void copyBounded(char* buffer, size_t size, const char* begin, size_t length) {
    if (length > size - 1) length = size - 1;
    memcpy(buffer, begin, length);
}

// The process group of the command running now, so that a gatr stopped by a signal stops it too:
// in a group of its own it would otherwise outlive gatr, and its time limit with it.
volatile sig_atomic_t runningGroup = 0;

void stopRunningGroupAndDie(int signal) {
    if (runningGroup > 0) kill(-runningGroup, SIGKILL);
    ::signal(signal, SIG_DFL);
    raise(signal);
}

void passStopSignalsOn() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        struct sigaction current;
        // A signal ignored when gatr started (nohup) stays ignored.
        if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN) continue;
        struct sigaction action = {};
        action.sa_handler = stopRunningGroupAndDie;
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

/// Reaps the child if it has ended by `until`; true when it has.
bool reapBy(Pipe::State& s, long long until) {
    long long pause = 1;
    for (;;) {
        if (s.reaped) return true;
        int status = 0;
        pid_t done = waitpid(s.pid, &status, WNOHANG);
        if (done == s.pid || (done == -1 && errno == ECHILD)) {
            // A guard reaped elsewhere cannot vouch for its group: end the group here.
            if (done != s.pid) kill(-s.group, SIGKILL);
            s.reaped = true;
            runningGroup = 0;
            s.status = done == s.pid ? status : -1;
            return true;
        }
        if (done == -1 && errno != EINTR) return false;
        long long left = until - nowMs();
        if (left <= 0) return false;
        struct timespec nap = {0, static_cast<long>((pause < left ? pause : left) * 1000000)};
        nanosleep(&nap, nullptr);
        if (pause < 50) pause *= 2;
    }
}

/// Stops the child's whole process group: TERM, then KILL when it is still there.
void stopGroup(Pipe::State& s) {
    if (s.reaped || s.timedOut) return;
    s.timedOut = true;
    kill(-s.group, SIGTERM);
    if (reapBy(s, nowMs() + GRACE_MS)) return;
    kill(-s.group, SIGKILL);
    if (reapBy(s, nowMs() + GRACE_MS)) return;
    // Stuck in the kernel: the guard is told to leave, and kills the group again on its way.
    killGuarded(GuardedChild{s.pid, s.group});
}

ssize_t readWithDeadline(void* cookie, char* buffer, size_t size) {
    auto& s = *static_cast<Pipe::State*>(cookie);
    for (;;) {
        long long left = s.deadline - nowMs();
        if (left <= 0) {
            stopGroup(s);
            return 0;
        }
        struct pollfd ready = {s.fd, POLLIN, 0};
        int polled = poll(&ready, 1, static_cast<int>(left > 60000 ? 60000 : left));
        if (polled < 0 && errno == EINTR) continue;
        if (polled < 0) return -1;
        if (polled == 0) continue;
        ssize_t got = read(s.fd, buffer, size);
        if (got < 0 && errno == EINTR) continue;
        if (got > 0) s.bytesRead += static_cast<unsigned long long>(got);
        return got;
    }
}

int closeReadEnd(void* cookie) {
    auto& s = *static_cast<Pipe::State*>(cookie);
    int result = ::close(s.fd);
    s.fd = -1;
    return result;
}

}  // namespace

char* getSpawnedProgram(const char* command, char* buffer, size_t size) {
    if (buffer == nullptr || size == 0) return buffer;
    memset(buffer, 0, size);
    if (command[0] == '"') {
        const char* closing = strchr(command + 1, '"');
        if (closing == nullptr) {
            throw std::runtime_error(_("malformed command: no closing double quote found"));
        }
        copyBounded(buffer, size, command + 1, static_cast<size_t>(closing - command - 1));
    } else {
        const char* space = strchr(command, ' ');
        if (space == nullptr) {
            throw std::runtime_error(_("malformed command: no space after program found"));
        }
        copyBounded(buffer, size, command, static_cast<size_t>(space - command));
    }
    char* slash = strrchr(buffer, '/');
    return slash != nullptr ? slash + 1 : buffer;
}

Pipe::Pipe(const char* command, int limitSeconds)
    : line(command), started(utcNow()), startMs(nowMs()) {
    maskLine(line);
    state.limitSeconds = limitSeconds > 0 ? limitSeconds : work::limits.commandSeconds;
    try {
        char program[4096];
        snprintf(state.program, sizeof state.program, "%s",
                 getSpawnedProgram(command, program, sizeof program));
    } catch (const std::runtime_error&) {
        snprintf(state.program, sizeof state.program, "%s", command);
    }
    char errorPath[PATH_SIZE] = "/dev/null";
    if (work::outputFolder[0] != '\0') {
        snprintf(errorPath, sizeof errorPath, "%s/logs/%s", work::outputFolder,
                 CHILD_STDERR_LOG_NAME);
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int err = open(errorPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (err < 0) err = open("/dev/null", O_WRONLY | O_CLOEXEC);
    passStopSignalsOn();
    const char* const argv[] = {"/bin/sh", "-c", command, nullptr};
    GuardedChild child;
    bool started = in >= 0 && err >= 0 && startGuarded(argv, in, ends[1], err, child);
    int error = errno;
    for (int fd : {in, err, ends[1]}) {
        if (fd >= 0) ::close(fd);
    }
    if (!started) {
        ::close(ends[0]);
        errno = error;
        return;
    }
    runningGroup = child.group;
    pid_t pid = child.guard;
    state.group = child.group;
    state.pid = pid;
    state.fd = ends[0];
    state.deadline = nowMs() + static_cast<long long>(state.limitSeconds) * 1000;
    cookie_io_functions_t io = {readWithDeadline, nullptr, nullptr, closeReadEnd};
    stream = fopencookie(&state, "r", io);
    if (stream == nullptr) {
        ::close(state.fd);
        stopGroup(state);
        state.timedOut = false;
    }
}

int Pipe::close() {
    bool first = !closed;
    int status = closeSilently();
    if (first) reportTimeLimit();
    return status;
}

int Pipe::closeSilently() {
    if (closed) return state.status;
    closed = true;
    if (state.pid < 0) {
        record();
        return -1;
    }
    if (stream != nullptr) {
        fclose(stream);
        stream = nullptr;
    }
    if (!reapBy(state, state.deadline)) stopGroup(state);
    record();
    return state.reaped ? state.status : -1;
}

void Pipe::record() const {
    CommandRecord command;
    command.line = line;
    command.started = started;
    command.milliseconds = nowMs() - startMs;
    if (state.reaped && WIFSIGNALED(state.status)) {
        command.signal = WTERMSIG(state.status);
    } else if (state.reaped && state.status != -1) {
        command.exitCode = WEXITSTATUS(state.status);
    }
    command.timedOut = state.timedOut;
    command.outputBytes = state.bytesRead;
    command.outputFile = outputFile;
    recordCommand(command);
}

void Pipe::reportTimeLimit() const {
    if (!state.timedOut) return;
    logError(__FILE__, __LINE__, STATUS_ERROR,
             _("call to %s stopped after %d seconds: time limit reached"), state.program,
             state.limitSeconds);
}

long long monotonicMs() { return nowMs(); }

GuardedChild startProgram(const char* const argv[], int stdinFd, int stdoutFd, int stderrFd) {
    char errorPath[PATH_SIZE] = "/dev/null";
    if (work::outputFolder[0] != '\0') {
        snprintf(errorPath, sizeof errorPath, "%s/logs/%s", work::outputFolder,
                 CHILD_STDERR_LOG_NAME);
    }
    int err = stderrFd;
    if (err < 0) err = open(errorPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (err < 0) err = open("/dev/null", O_WRONLY | O_CLOEXEC);
    passStopSignalsOn();
    GuardedChild child;
    bool started = err >= 0 && startGuarded(argv, stdinFd, stdoutFd, err, child);
    int error = errno;
    if (err >= 0 && err != stderrFd) ::close(err);
    if (started) runningGroup = child.group;
    errno = error;
    return child;
}

int finishProgram(const GuardedChild& child, long long deadlineMs, bool* stopped) {
    Pipe::State state;
    state.pid = child.guard;
    state.group = child.group;
    if (child.guard > 0 && !reapBy(state, deadlineMs)) stopGroup(state);
    if (stopped != nullptr) *stopped = state.timedOut;
    return state.reaped && !state.timedOut ? state.status : -1;
}
