// Probes for processes, executables, kernel modules and packages, reused by product sections.
#pragma once

#include <string>

/// The process ID of the first process whose command line matches; 0 when none, -1 when the
/// pipeline could not be started.
int getPid(const char* name);
/// Writes the process line ("running, process ID ..." or "not running") to the main log.
void getDaemon(const char* name);
/// Writes the executable's heading, date, size and version lines, or the failure line.
void getDaemonModule(const char* name, const char* path);
/// Writes the kernel module's heading, information lines and status line.
void getKernelModule(const char* name);
/// The last complete line "rpm -q <name>" printed (newline kept), or empty.
std::string getDaemonPackage(const char* name);
