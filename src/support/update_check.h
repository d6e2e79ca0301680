// The update check: is a newer gatr on the control FTP server; download and verify it.
#pragma once

/// Unless --no-check was given, reads the first word of ".control" on the control FTP server as
/// the available version, the download URL and the official SHA-256 hash alike (the three
/// keys are empty), and compares the version with the running one. Returns when there is
/// nothing to do or a failure before the download (logged where it says so); after a download
/// it exits itself: 1 when the download or the hash check fails, 0 otherwise. Console output
/// (standard output) is suppressed by --silent. No run mode calls it.
void checkForUpdate();

/// Parses, with format (one word), what follows the first occurrence of key in text into
/// field. Returns false, leaving field as it was, when key does not occur.
bool readControlField(const char* text, const char* key, const char* format, char* field);

/// True when running is greater than available at the first of major, minor, patch and build
/// ("%d.%d.%d-%d", missing fields 0) that differs; false when available is greater or when all
/// four are equal (an equal version counts as new).
bool isRunningVersionLater(const char* running, const char* available);
