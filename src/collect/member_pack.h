// One member of the archive, read once through a descriptor gatr opened itself and masked on its
// way into the tar stream.
#pragma once

#include <functional>
#include <string>

#include "privacy/masking.h"

class TarStream;

/// What packing one member came to.
struct PackedMember {
    enum Outcome { PACKED, LEFT_OUT, ARCHIVE_LOST } outcome = LEFT_OUT;
    unsigned long long bytes = 0;   // the data packed (after masking)
    privacy::MaskCounts masked;
    std::string warning;            // why it was left out or cut, for the error log; or empty
};

/// Packs the file, folder, link, FIFO or device at the normalised path as what it is now: a
/// regular file up to the size it had when opened (a shorter read is padded with zeros and
/// warned of), its text masked unless masking is off or it looks binary; FIFOs and devices as
/// entries without data, never opened. spillFolder takes a member too long for memory;
/// progress hears of every byte read. Never throws.
PackedMember packMember(TarStream& tar, const std::string& path, const char* spillFolder,
                        const std::function<void(unsigned long long)>& progress);
