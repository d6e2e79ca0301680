// One gatr run at a time: every run that writes the output folder holds its lock file.
#pragma once

/// Takes an exclusive lock on "<folder>/.lock", held until the process ends, and writes the
/// pid into it; 0. When another process holds it, prints "gatr: another gatr run is in progress
/// (process <pid>)" on standard error and returns -1, having changed nothing.
int lockOutputFolder(const char* folder);

/// Logs a warning when lockOutputFolder could not take the lock (a read-only folder, say)
/// and the run goes on unguarded; logs nothing otherwise.
void reportUnguardedRun();

/// Removes what is named "*.tmp" in the folder, folders aside: what killed runs left half written.
void removeStaleTemporaries(const char* folder);
