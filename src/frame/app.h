// Start-up, the root check and the end of every run.
#pragma once

#include <cstddef>

/// Finds the folder of the executable (as /proc/self/exe names it; else the folder of
/// programPath) into work::programFolder, sets the locale, the catalogue and the thousands
/// separator; the working folder stays the caller's. 0, or -1 when the folder cannot be entered.
int initialize(const char* programPath);
/// Writes "<program folder>/<relative>" into buffer (size bytes, cut to fit) and returns buffer:
/// the path of a file that travels beside the program, such as "etc/gatr_config.json".
char* programFile(const char* relative, char* buffer, size_t size);
/// Writes path into buffer (size bytes, cut to fit) as an absolute path, relative ones taken
/// from the working folder the user started gatr in; returns buffer.
char* absolutePath(const char* path, char* buffer, size_t size);
/// Returns only when the effective user is root; otherwise prints why and exits 1.
void checkPermissions();
/// Writes the settings file, removes the folders queued for deletion, closes the error log.
void cleanup();
/// Writes work::settings to path through a temporary file that is renamed over it only once
/// complete and on disk; 0, or -1 (logged when the file cannot be written or renamed; the
/// old file stays as it was).
int writeSettingsAtomically(const char* path);
