// The archive of a diagnostics run: every gathered file packed, masked, by gatr itself.
#pragma once

#include <cstddef>
#include <ctime>
#include <list>
#include <string>

enum class ArchiveResult { SKIPPED, MADE, FAILED };

/// Packs /var/log/messages, work::archiveList (a folder with everything below it) and every file
/// of the run into a free name "<output>/gatr_<node>_<UTC>[-N].tar.gz" with its ".sha256" beside
/// it; the run's own logs come last, the error log last of all, suspended so that it is packed
/// complete. Text members are masked unless masking is off. On success the path goes into
/// archivePath (PATH_SIZE bytes) and into "last_archive_file". A failed archive leaves no file
/// and the setting as it was. With skip nothing is packed. The error log is open again on
/// return; the list is always empty on return. Never exits.
ArchiveResult createArchive(bool skip, char* archivePath);

/// Writes "<output folder>/gatr_<node name>_<YYYYmmddTHHMMZ>.tar.gz" for the UTC time now into
/// archivePath (size bytes). Lowers work::nodename in place, so later users see lower case.
void buildArchivePath(char* archivePath, size_t size, time_t now);

/// Sorts entries byte-wise, drops duplicates, then brings the product installer and
/// user-interface logs to the front (the last one moved comes first).
void orderArchiveList(std::list<std::string>& entries);
