// The pieces of the backup jobs report: one job's keys read through its index, and the
// blocks of a job in the order they are written.
#pragma once

#include <cstdio>

#include "json/jsonparser.h"

/// Typed reads of one job of the backup document; keys are relative to "[<index>]->" and
/// may carry further printf-style indices. Missing keys read as 0, false or empty text.
class OrbJob {
public:
    OrbJob(JsonDocument& backups, int index) : document(backups), job(index) {}

    int integer(const char* key, ...) __attribute__((format(printf, 2, 3)));
    bool boolean(const char* key, ...) __attribute__((format(printf, 2, 3)));
    size_t count(const char* key, ...) __attribute__((format(printf, 2, 3)));
    /// Copies at most size-1 characters into the zero-filled buffer; returns buffer.
    char* text(char* buffer, size_t size, const char* key, ...)
        __attribute__((format(printf, 4, 5)));
    /// The text of a string key, untouched and uncut; "" when missing. Valid until the
    /// document changes.
    const char* string(const char* key, ...) __attribute__((format(printf, 2, 3)));
    /// The full key path, "[<index>]->key", for messages.
    const char* keyPath(const char* key);

private:
    const char* formatPath(const char* key, va_list args);

    JsonDocument& document;
    int job;
    char path[256] = {};
};

/// The check-box mark: "X" when set, a blank otherwise.
inline const char* orbTick(bool set) { return set ? "X" : " "; }
inline char orbTickChar(bool set) { return set ? 'X' : ' '; }

/// The "Schedule:" block: type line and every rule with its grid, times and repeat lines.
void writeOrbJobSchedule(FILE* out, OrbJob& job);
/// The "Advanced:" block: performance, scripts, images and retention.
void writeOrbJobAdvanced(FILE* out, OrbJob& job);
