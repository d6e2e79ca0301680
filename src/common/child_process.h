// Programs gatr runs: commands through /bin/sh -c (Pipe), programs by path without a shell
// (startProgram), each in a process group of its own with standard error appended to
// logs/gatr_stderr.log and a time limit on each run. Every spawn lives here, so that a guard
// ending the whole group when gatr dies covers them all.
#pragma once

#include "common/guarded_spawn.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <string>

constexpr const char* CHILD_STDERR_LOG_NAME = "gatr_stderr.log";

/// Stores the command's program (the quoted text, or the text before the first blank) in
/// buffer and returns its base name inside buffer. Throws std::runtime_error for an unclosed
/// quote or a command without a blank.
char* getSpawnedProgram(const char* command, char* buffer, size_t size);

/// A running command whose standard output get() reads. When its time limit passes, its process
/// group is stopped (TERM, then KILL), reading sees end of file, and close() logs "call to %s
/// stopped after %d seconds: time limit reached" at status ERROR. Closed on every path.
class Pipe {
public:
    /// Starts command; limitSeconds of 0 or less means work::limits.commandSeconds. get() is
    /// null, with errno set, when the command could not be started.
    explicit Pipe(const char* command, int limitSeconds = 0);
    ~Pipe() { close(); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    FILE* get() const { return stream; }
    explicit operator bool() const { return stream != nullptr; }
    /// Stops reading, waits for the command within what is left of its limit, and returns its
    /// raw wait status; -1 when it never started or could not be reaped.
    int close();
    /// close() without its time-limit message, for a caller whose error log is shut while the
    /// command runs; it calls reportTimeLimit() once the log is open again.
    int closeSilently();
    /// Logs the time-limit message when the command was stopped for passing its limit.
    void reportTimeLimit() const;
    /// Whether the command was stopped for passing its limit.
    bool timedOut() const { return state.timedOut; }
    /// Names the file the caller copies the output into, for the run record.
    void noteOutputFile(const char* path) { outputFile = path; }

    // What the reading side and the waits share; public only for the stream's callbacks.
    struct State {
        int pid = -1;    // the guard, which ends as the command did
        int group = -1;  // the command's process group
        int fd = -1;
        int limitSeconds = 0;
        long long deadline = 0;  // milliseconds on the monotonic clock
        bool reaped = false;
        bool timedOut = false;
        int status = -1;
        char program[256] = {};
        unsigned long long bytesRead = 0;
    };

private:
    void record() const;
    State state;
    std::string line;
    std::string started;
    long long startMs = 0;
    std::string outputFile;
    FILE* stream = nullptr;
    bool closed = false;
};

/// Starts the program at argv[0] (a path; no shell) with argv, standard input read from stdinFd,
/// standard output written to stdoutFd and standard error appended to logs/gatr_stderr.log, in a
/// process group of its own that a gatr stopped by a signal, or killed, takes with it. Its pid, or
/// -1 with errno set when it could not be started. End it with finishProgram on every path.
/// stderrFd, when 0 or more, takes standard error instead of the log.
GuardedChild startProgram(const char* const argv[], int stdinFd, int stdoutFd, int stderrFd = -1);

/// Waits for the program startProgram started, until the monotonic clock passes deadlineMs (see
/// monotonicMs); past it, stops its process group (TERM, then KILL). Its raw wait status, or -1
/// when it had to be stopped or could not be reaped; *stopped (when given) says whether it was.
int finishProgram(const GuardedChild& child, long long deadlineMs, bool* stopped = nullptr);

/// Milliseconds on the monotonic clock: the time base of finishProgram's deadline.
long long monotonicMs();
