// The archive of a diagnostics run: every gathered file packed by the system's tar.
#pragma once

#include <cstddef>
#include <ctime>
#include <list>
#include <string>

/// Packs work::archiveList and /var/log/messages into "<output>/gatr_<node>_<UTC>.tar.gz",
/// whose path goes into archivePath (PATH_SIZE bytes) and into "last_archive_file". With skip
/// nothing is packed. The error log is suspended while tar runs and open again on return;
/// the list is always empty on return. Returns true when an archive was made that may be
/// offered for upload (tar exited 0, or 1 as a raw status), false otherwise. Never exits.
int createArchive(bool skip, char* archivePath);

/// Writes "<output folder>/gatr_<node name>_<YYYYmmddTHHMMZ>.tar.gz" for the UTC time now into
/// archivePath (size bytes). Lowers work::nodename in place, so later users see lower case.
void buildArchivePath(char* archivePath, size_t size, time_t now);

/// Sorts entries byte-wise, drops duplicates, then brings the product installer and
/// user-interface logs to the front (the last one moved comes first).
void orderArchiveList(std::list<std::string>& entries);

/// Writes the tar command for archivePath and entries into command (size bytes): every path
/// in double quotes, escaped for the shell, /var/log/messages first, output discarded. An
/// entry that no longer fits whole is left out with all after it, so the command never ends
/// in a cut word or a cut redirection.
void buildArchiveCommand(const char* archivePath, const std::list<std::string>& entries,
                         char* command, size_t size);
