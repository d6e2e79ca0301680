// Start-up, the root check and the end of every run.
#pragma once

/// Enters the folder of the executable (as /proc/self/exe names it; else the folder of
/// programPath, if it names one), sets the locale, the catalogue and the thousands separator;
/// 0, or -1 when the folder cannot be entered.
int initialize(const char* programPath);
/// Returns only when the effective user is root; otherwise prints why and exits 1.
void checkPermissions();
/// Writes the settings file, removes the folders queued for deletion, closes the error log.
void cleanup();
/// Writes work::settings to path through a temporary file that is renamed over it only once
/// complete and on disk; 0, or -1 (logged when the file cannot be written or renamed; the
/// old file stays as it was).
int writeSettingsAtomically(const char* path);
