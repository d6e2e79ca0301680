// The SYSTEM section of the main log: host, operating system, firmware, CPUs, memory, time,
// uptime and installed kernels, plus the facts under "system" in the settings document.
#pragma once

#include <cstddef>
#include <ctime>

/// Writes the whole SYSTEM section, sets work::nodename and the five "system" facts. Failures
/// are logged and the section goes on with what it has; never exits.
void enumerateSystem();

/// Returns the description from "cat /etc/system-release" (a static buffer that keeps its
/// text between calls), or fallback itself when the command cannot be started (logged).
const char* getOsRelease(const char* fallback);

/// Takes one line of /etc/system-release into release (256 bytes): the quoted text of a
/// DISTRIB_DESCRIPTION= line, else the whole line; a line that yields nothing leaves it.
void parseOsReleaseLine(const char* line, char* release);

/// Writes the "Sockets:" line and one line per change of physical id to the main log.
void getCpuInfo();

/// Writes "Installed kernels:" and one line per /boot/vmlinuz* file, newest name first.
void getInstalledKernels();

struct Uptime {
    long days;
    long hours;
    long minutes;
};

/// Splits an uptime in seconds into whole days, hours and minutes (seconds are never shown).
Uptime splitUptime(long seconds);

/// Writes the memory text for sysinfo's totalram (taken as bytes): "%0.1f GB" above 1024 MiB,
/// else "%0.0f MB".
void formatMemory(unsigned long totalram, char* buffer, size_t size);

/// Writes the boot time, now minus uptime, as local "%Y-%m-%dT%H:%M:%S%z" followed by the UTC
/// instant "(%Y-%m-%dT%H:%M:%SZ)".
void formatBootTime(time_t now, long uptime, char* buffer, size_t size);
