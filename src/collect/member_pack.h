// One member of the archive, read once through a descriptor gatr opened itself and masked on its
// way into the tar stream.
#pragma once

#include <functional>
#include <string>

#include "privacy/masking.h"
#include "privacy/obfuscation.h"

class TarStream;

/// What the run asks of every member: the log window and cap, and the names to replace.
struct PackRules {
    bool isLog = false;                      // a product or system log: the two rules below apply
    long long since = 0;                     // a log last changed before this is left out
    unsigned long long maxLogBytes = 0;      // a larger log is packed as its last part
    privacy::ObfuscationMap* obfuscation = nullptr;  // names and text replaced when set
};

/// What packing one member came to.
struct PackedMember {
    enum Outcome { PACKED, LEFT_OUT, ARCHIVE_LOST } outcome = LEFT_OUT;
    unsigned long long bytes = 0;   // the data packed (after masking)
    unsigned long long bytesRead = 0;
    unsigned long long cutFrom = 0;  // the size of a log packed as its last part, else 0
    privacy::MaskCounts masked;
    privacy::ObfuscationCounts obfuscated;
    std::string warning;            // why it was left out or cut, for the error log; or empty
    std::string skipped;            // why a rule of the run left it out, or empty
};

/// Packs the file, folder, link, FIFO or device at the normalised path as what it is now: a
/// regular file up to the size it had when opened (a shorter read is padded with zeros and
/// warned of), its text masked unless masking is off or it looks binary; FIFOs and devices as
/// entries without data, never opened; an obfuscation mapping (by its name or its first bytes)
/// is left out. spillFolder takes a member too long for memory;
/// progress hears of every byte read. Never throws.
PackedMember packMember(TarStream& tar, const std::string& path, const char* spillFolder,
                        const std::function<void(unsigned long long)>& progress,
                        const PackRules& rules = PackRules());

/// Packs text held in memory as a regular file of the given name, mode 0600, time now; false
/// when the archive could not take it.
bool packText(TarStream& tar, const std::string& path, const std::string& text);
