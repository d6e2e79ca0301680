// What tar says while it packs: held, since the error log is shut then, and logged after.
#pragma once

#include <cstddef>

class TarMessages {
public:
    /// Keeps one line (its line end dropped; blank lines skipped) while room remains, and
    /// counts it as left out otherwise.
    void add(const char* line);
    /// Logs every kept line at status WARNING, then how many were left out, if any.
    void log() const;

private:
    char text[65536] = {};  // the kept lines, each ended by a NUL byte
    size_t used = 0;
    int dropped = 0;
};
