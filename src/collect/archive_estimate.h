// How big an archive will be, told before it is written: a run that would fill the disk says so
// and packs nothing, and --estimate prints the figure without packing at all.
#pragma once

#include <string>

/// The bytes a member of size bytes is expected to take in the archive: its tar header and
/// padding, and its data scaled by how well a sample of the file compresses (deflate at gzip's
/// default level over up to 256 KiB read from where the packed part begins, at offset).
unsigned long long estimatePackedSize(const std::string& path, unsigned long long size,
                                      unsigned long long offset = 0);

/// The same for a member whose text is held in memory, compressed whole.
unsigned long long estimatePackedText(const std::string& text);

/// The bytes that root may still write in folder; 0 when it cannot be told.
unsigned long long freeSpaceIn(const char* folder);
