// The run record: what a diagnostics run did, as JSON support reads at a glance and tools read
// whole (logs/gatr_run.json): each section, each command, each member of the archive, and the
// totals. The record is filled as the run goes and rendered once, as the archive's last member.
#pragma once

#include <cstddef>
#include <list>
#include <string>

#include "privacy/masking.h"
#include "privacy/obfuscation_map.h"

/// One program the run started, as it ended.
struct CommandRecord {
    std::string line;              // masked
    std::string started;           // UTC, ISO 8601
    long long milliseconds = 0;
    int exitCode = -1;             // when it exited
    int signal = 0;                // when a signal ended it
    bool timedOut = false;         // its time limit stopped it
    unsigned long long outputBytes = 0;
    std::string outputFile;        // where its output went, or empty when gatr read it itself
};

/// One path of the archive list, as packed or as left out.
struct MemberRecord {
    std::string path;
    unsigned long long bytesRead = 0;
    unsigned long long bytesPacked = 0;
    bool cut = false;
    unsigned long long cutFrom = 0;  // its size before it was cut
    privacy::MaskCounts masked;
    privacy::ObfuscationCounts obfuscated;
    std::string leftOut;             // why it was not packed, or empty
};

/// Notes the run's start and what was asked of it; clears any earlier record.
void startRunRecord();
/// A section of the main log begins or ends; warnings and errors logged in between decide its
/// outcome ("completed", "completed with warnings", "completed with errors").
void recordSectionStart(const char* name);
void recordSectionEnd(const char* name);
/// A warning or an error line went to the error log.
void recordLogLine(bool error);
void recordCommand(const CommandRecord& command);
void recordMember(const MemberRecord& member);
/// The record as JSON text (pretty, two-space indent), with the end time of now; with the
/// expected members after those recorded, as it will read once they are packed.
std::string renderRunRecord(const std::list<MemberRecord>& expected = {});
/// Writes text as "<output folder>/logs/gatr_run.json"; 0, or -1 (logged).
int keepRunRecord(const std::string& text);
/// The record's path in the output folder, into buffer (size bytes); returns buffer.
char* runRecordPath(char* buffer, size_t size);
/// The current UTC time as ISO 8601 ("2026-11-25T14:36:03Z").
std::string utcNow();
