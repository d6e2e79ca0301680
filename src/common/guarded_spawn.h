// Starting a program so that nothing it starts outlives gatr: not its pipelines, not its
// compressors, not when gatr is killed outright. Each program leads a process group of its own,
// watched by a small guard process that ends whatever is left of the group.
#pragma once

#include <sys/types.h>

/// A program started by startGuarded: the guard to reap, and the group to signal.
struct GuardedChild {
    pid_t guard = -1;
    pid_t group = -1;
};

/// Starts argv (argv[0] searched on the search path) with standard input, output and error
/// from in, out and err, as the leader of a new process group, under a guard. When the program
/// ends, the guard kills what is left of its group and ends as the program did (its exit code,
/// or its signal). When gatr dies, even by KILL, or the guard gets TERM, INT, HUP, QUIT or USR1,
/// the guard kills the whole group. Signals are blocked across the forks and descriptors
/// other than the three are closed in the program. Returns false with errno set (the guard
/// reaped) when the program could not be started; the wait for its start is bounded.
bool startGuarded(const char* const argv[], int in, int out, int err, GuardedChild& child);

/// Ends what is left of a guarded program's group and its guard, without waiting.
void killGuarded(const GuardedChild& child);
