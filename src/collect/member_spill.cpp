// The disk cost of a member longer than memory is that one member, never a copy of every log.
#include "collect/member_spill.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "frame/work.h"

namespace {

constexpr size_t MEMORY_BOUND = 8 << 20;
constexpr size_t PIECE = 1 << 20;

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

bool MemberSpill::openFile() {
    // Unnamed from the start where the file system allows it; otherwise named for a moment only.
    file.reset(open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file) return true;
    char name[PATH_SIZE];
    snprintf(name, sizeof name, "%s/.gatr_spill_XXXXXX", folder);
    file.reset(mkostemp(name, O_CLOEXEC));
    if (!file) return false;
    unlink(name);
    return true;
}

bool MemberSpill::append(const char* data, size_t size) {
    if (!file && held.size() + size <= MEMORY_BOUND) {
        held.append(data, size);
        return true;
    }
    if (!file) {
        if (!openFile() || !writeAll(file.get(), held.data(), held.size())) return false;
        spilled = held.size();
        std::string().swap(held);
    }
    if (!writeAll(file.get(), data, size)) return false;
    spilled += size;
    return true;
}

bool MemberSpill::replay(const std::function<bool(const char*, size_t)>& sink) {
    if (!file) return held.empty() || sink(held.data(), held.size());
    std::unique_ptr<char[]> piece(new char[PIECE]);
    for (unsigned long long at = 0; at < spilled;) {
        ssize_t got = pread(file.get(), piece.get(), PIECE, static_cast<off_t>(at));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || !sink(piece.get(), static_cast<size_t>(got))) return false;
        at += static_cast<unsigned long long>(got);
    }
    return true;
}
