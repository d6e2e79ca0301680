// The archive of a diagnostics run: every gathered file packed by the system's tar.
#pragma once

#include <cstddef>
#include <ctime>
#include <list>
#include <string>
#include <vector>

enum class ArchiveResult { SKIPPED, MADE, FAILED };

/// Packs /var/log/messages, work::archiveList and every file of the run into a free name
/// "<output>/gatr_<node>_<UTC>[-N].tar.gz" with its ".sha256" beside it; on success the path
/// goes into archivePath (PATH_SIZE bytes) and into "last_archive_file". A failed archive
/// leaves no file and the setting as it was. With skip nothing is packed. The error log is
/// suspended while tar runs and open again on return; the list is always empty on return.
/// Never exits.
ArchiveResult createArchive(bool skip, char* archivePath);

/// Writes "<output folder>/gatr_<node name>_<YYYYmmddTHHMMZ>.tar.gz" for the UTC time now into
/// archivePath (size bytes). Lowers work::nodename in place, so later users see lower case.
void buildArchivePath(char* archivePath, size_t size, time_t now);

/// Sorts entries byte-wise, drops duplicates, then brings the product installer and
/// user-interface logs to the front (the last one moved comes first).
void orderArchiveList(std::list<std::string>& entries);

/// Writes into command (size bytes) the tar command that packs the members named in the
/// NUL-separated listPath into temporary, compressed with pigz when it is on the search path
/// and with gzip otherwise, each member renamed by the tar --transform expressions given;
/// tar's messages go to standard output. False when it does not fit.
bool buildArchiveCommand(const char* temporary, const char* listPath,
                         const std::vector<std::string>& transforms, char* command, size_t size);
