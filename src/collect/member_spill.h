// A member whose final length is known only once it is all read (masked text, a /proc file): held
// in memory while small, in an unnamed file of the output folder past that.
#pragma once

#include <functional>
#include <string>

#include "common/unique_fd.h"

class MemberSpill {
public:
    /// folder: where an unnamed file is made when the member outgrows memory.
    explicit MemberSpill(const char* folder) : folder(folder) {}
    /// Adds bytes; false (errno set) when the file past memory could not be made or written.
    bool append(const char* data, size_t size);
    unsigned long long size() const { return held.size() + spilled; }
    /// Hands every byte held, in order, to sink in pieces; false when sink or a read fails.
    bool replay(const std::function<bool(const char*, size_t)>& sink);

private:
    bool openFile();
    const char* folder;
    std::string held;
    UniqueFd file;
    unsigned long long spilled = 0;
};
