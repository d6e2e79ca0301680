// Giving a finished archive its name: a free one, beside a checksum file, in one step each.
#pragma once

#include <cstddef>

/// Turns path, "<stem>.tar.gz", into the first of "<stem>.tar.gz", "<stem>-2.tar.gz", ...
/// for which neither the archive nor its ".sha256" file exists; false (logged) when no name
/// up to "-999" is free or one would not fit in size bytes.
bool chooseFreeArchivePath(char* path, size_t size);

/// Writes "<archivePath>.sha256" ("<hex>  <file name>\n", as sha256sum -c reads it) for the
/// complete archive at temporary, then renames the archive to archivePath; both files are
/// synced before their rename and the folder after it. On failure
/// (logged, -1) the temporary archive and every file made here are removed; 0 otherwise.
int publishArchive(const char* temporary, const char* archivePath);
