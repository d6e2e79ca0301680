// Probes for processes, executables, kernel modules and packages, reused by product sections.
#pragma once

#include <string>

/// The process ID of the first process whose command line matches; 0 when none, -1 when the
/// pipeline could not be started.
int getPid(const char* name);
/// Writes the process line ("running, process ID ...", "not running", or "state unknown" when
/// the listing could not be started, which getPid logs) to the main log.
void getDaemon(const char* name);
/// Writes the executable's heading, filename, date and size lines, or the failure line
/// (stat failure logged).
void getDaemonModule(const char* name, const char* path);
/// Writes the kernel module's heading, modinfo's lines, date and size, and the status line;
/// a command that cannot start is logged and gives the failure line or "state unknown".
void getKernelModule(const char* name);
/// The last complete line "rpm -q <name>" printed (newline kept), or empty (a pipe that
/// cannot start is logged); writes one newline to the main log after a read.
std::string getDaemonPackage(const char* name);
