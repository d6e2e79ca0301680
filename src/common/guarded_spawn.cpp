// The guard between gatr and each program it runs. A parent-death signal reaches only the
// process that asked for it, so the guard asks for it and passes it on to the whole group; and
// the guard, not gatr, waits for the program, so that the group's id stays reserved (by the
// program's unreaped exit) until whatever the program left behind has been killed.
#include "common/guarded_spawn.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <initializer_list>

namespace {

// How long gatr waits for a guard to say that its program started (a fork and an exec).
constexpr int START_WAIT_MS = 10000;

// In the guard: the group it watches.
volatile sig_atomic_t watchedGroup = 0;

void killGroupAndLeave(int signal) {
    if (watchedGroup > 0) kill(-watchedGroup, SIGKILL);
    _exit(128 + signal);
}

/// Closes every descriptor from `first` up: one call where the kernel has close_range, else
/// one by one up to a bound.
void closeFrom(int first) {
#ifdef SYS_close_range
    if (syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0) return;
#endif
    long highest = sysconf(_SC_OPEN_MAX);
    if (highest < 0 || highest > 65536) highest = 65536;
    for (int fd = first; fd < highest; ++fd) close(fd);
}

void writeAll(int fd, const void* data, size_t size) {
    ssize_t written;
    do written = write(fd, data, size); while (written < 0 && errno == EINTR);
}

/// In the program, before exec: only async-signal-safe calls.
[[noreturn]] void becomeProgram(const char* const argv[], int in, int out, int err, int report) {
    setpgid(0, 0);
    for (int signal = 1; signal < NSIG; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP) ::signal(signal, SIG_DFL);
    }
    // Standard descriptors first into places above every one we were given, so that no dup2
    // below overwrites a source still to be copied.
    int moved[4] = {fcntl(in, F_DUPFD, 10), fcntl(out, F_DUPFD, 10), fcntl(err, F_DUPFD, 10),
                    fcntl(report, F_DUPFD_CLOEXEC, 10)};
    if (moved[0] < 0 || moved[1] < 0 || moved[2] < 0 || moved[3] < 0 || dup2(moved[0], 0) < 0 ||
        dup2(moved[1], 1) < 0 || dup2(moved[2], 2) < 0 || dup2(moved[3], 3) < 0 ||
        fcntl(3, F_SETFD, FD_CLOEXEC) < 0) {
        _exit(127);
    }
    closeFrom(4);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execvp(argv[0], const_cast<char* const*>(argv));
    int error = errno;
    writeAll(3, &error, sizeof error);
    _exit(127);
}

/// The guard: starts the program, then waits for it and clears its group.
[[noreturn]] void becomeGuard(pid_t parent, const char* const argv[], int in, int out, int err,
                              int report) {
    struct sigaction action = {};
    action.sa_handler = killGroupAndLeave;
    sigfillset(&action.sa_mask);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1}) sigaction(signal, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
    prctl(PR_SET_PDEATHSIG, SIGUSR1);
    // Named apart from gatr itself in the process list: an administrator looking for the run
    // sees one gatr, and what watches each of its programs.
    prctl(PR_SET_NAME, "gatr-guard", 0, 0, 0);
    // The program's exec failure comes to the guard, which tells gatr in one message, after
    // the group's id: two writers on one pipe could be read in either order.
    int execReport[2];
    pid_t program = pipe2(execReport, O_CLOEXEC) == 0 ? fork() : -1;
    if (program == 0) becomeProgram(argv, in, out, err, execReport[1]);
    int started[2] = {program, errno};
    if (program > 0) {
        setpgid(program, program);  // also here, so that the group exists before any kill
        watchedGroup = program;
        close(execReport[1]);
        int error = 0;
        ssize_t got;
        do got = read(execReport[0], &error, sizeof error); while (got < 0 && errno == EINTR);
        started[1] = got == static_cast<ssize_t>(sizeof error) ? error : 0;
    }
    writeAll(report, started, sizeof started);
    if (program < 0) _exit(127);
    closeFrom(3);  // gatr's files and the program's pipe ends: the guard holds nothing open
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // gatr gone before the parent-death signal was asked for: nothing would send it now.
    if (getppid() != parent) killGroupAndLeave(SIGUSR1);

    siginfo_t info = {};
    while (waitid(P_PID, static_cast<id_t>(program), &info, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    // The program's exit is not reaped yet, so its id cannot name another group here.
    kill(-program, SIGKILL);
    int status = 0;
    while (waitpid(program, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        ::signal(WTERMSIG(status), SIG_DFL);
        raise(WTERMSIG(status));
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, WTERMSIG(status));
        sigprocmask(SIG_UNBLOCK, &only, nullptr);
        _exit(128 + WTERMSIG(status));
    }
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 127);
}

/// Reads exactly size bytes from fd within the time left; false at end of file or time out.
bool readWithin(int fd, void* data, size_t size, int waitMs) {
    size_t got = 0;
    while (got < size) {
        struct pollfd ready = {fd, POLLIN, 0};
        int polled = poll(&ready, 1, waitMs);
        if (polled < 0 && errno == EINTR) continue;
        if (polled <= 0) return false;
        ssize_t n = read(fd, static_cast<char*>(data) + got, size - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        got += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool startGuarded(const char* const argv[], int in, int out, int err, GuardedChild& child) {
    child = GuardedChild();
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) return false;
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    // No handler of gatr's may run in a fresh child before it has set up its own.
    sigprocmask(SIG_BLOCK, &all, &previous);
    fflush(nullptr);  // nothing buffered may be written twice by the child
    pid_t parent = getpid();
    pid_t guard = fork();
    if (guard == 0) becomeGuard(parent, argv, in, out, err, report[1]);
    int error = errno;
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    close(report[1]);
    if (guard < 0) {
        close(report[0]);
        errno = error;
        return false;
    }
    child.guard = guard;
    int answer[2] = {-1, EAGAIN};  // the program's id, and the error that kept it from running
    bool started = readWithin(report[0], answer, sizeof answer, START_WAIT_MS) && answer[0] > 0;
    if (answer[0] > 0) child.group = answer[0];
    if (answer[1] != 0) {
        started = false;
        error = answer[1];
    }
    close(report[0]);
    if (started) return true;
    killGuarded(child);
    int status;
    while (waitpid(guard, &status, 0) < 0 && errno == EINTR) {
    }
    child = GuardedChild();
    errno = error;
    return false;
}

void killGuarded(const GuardedChild& child) {
    if (child.group > 0) kill(-child.group, SIGKILL);
    if (child.guard > 0) kill(child.guard, SIGUSR1);
}
