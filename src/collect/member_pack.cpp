// Each member is opened once and everything is decided on that descriptor: what was looked at
// is what is read. A tar header states the size before the data, so a file is packed up to the
// size it had when opened, and text whose masking changes its length is held (memory, or one
// unnamed spill file) until that length is known.
#include "collect/member_pack.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "collect/member_spill.h"
#include "collect/obfuscation_setup.h"
#include "collect/tar_stream.h"
#include "common/unique_fd.h"
#include "frame/trusted_paths.h"
#include "frame/work.h"

namespace {

constexpr size_t CHUNK = 1 << 16;
// A kernel file states no size (st_size 0); it is read to its end, but not for ever.
constexpr unsigned long long LARGEST_UNSIZED = 64ull << 20;

struct EntryFree {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using Entry = std::unique_ptr<archive_entry, EntryFree>;

Entry makeEntry(const std::string& path, const struct stat& info, unsigned long long size,
                const PackRules& rules, PackedMember& result) {
    Entry entry(archive_entry_new());
    if (!entry) return entry;
    archive_entry_copy_stat(entry.get(), &info);
    std::string name = rules.obfuscation != nullptr
                           ? privacy::obfuscateName(*rules.obfuscation, path, &result.obfuscated)
                           : path;
    archive_entry_copy_pathname(entry.get(), name.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    archive_entry_set_nlink(entry.get(), 1);  // each member stands alone, never a hard link
    return entry;
}

bool isMappingName(const std::string& name) {
    size_t suffix = strlen(ARCHIVE_MAP_SUFFIX);
    return name.compare(0, strlen(OBFUSCATION_MAP_FILE), OBFUSCATION_MAP_FILE) == 0 ||
           (name.size() > suffix && name.compare(name.size() - suffix, suffix, ARCHIVE_MAP_SUFFIX) == 0);
}

bool isKernelFile(const std::string& path) {
    return path.compare(0, 6, "/proc/") == 0 || path.compare(0, 5, "/sys/") == 0;
}

ssize_t readSome(int fd, char* buffer, size_t size) {
    for (;;) {
        ssize_t got = read(fd, buffer, size);
        if (got >= 0 || errno != EINTR) return got;
    }
}

std::string describeCut(const char* what, unsigned long long done, unsigned long long size,
                        int error, const char* rest) {
    char text[256];
    snprintf(text, sizeof text, "%s after %llu of %llu bytes%s%s; %s", what, done, size,
             error != 0 ? ": " : "", error != 0 ? strerror(error) : "", rest);
    return text;
}

PackedMember finish(PackedMember result, bool written) {
    if (!written) result.outcome = PackedMember::ARCHIVE_LOST;
    return result;
}

/// A member whose packed length is known only once it is read whole: masked text, kernel files.
PackedMember packHeld(TarStream& tar, const std::string& path, int fd, const struct stat& info,
                      bool mask, unsigned long long limit, char* chunk, ssize_t got,
                      const char* spillFolder,
                      const std::function<void(unsigned long long)>& progress,
                      const PackRules& rules, PackedMember result) {
    MemberSpill spill(spillFolder);
    // Secrets first, then names: a replaced name never meets the masking rules, and a masked
    // value is never read as a name.
    privacy::MaskingFilter masking;
    privacy::PassThrough noMasking;
    privacy::TextFilter& first = work::maskSecrets ? static_cast<privacy::TextFilter&>(masking)
                                                   : static_cast<privacy::TextFilter&>(noMasking);
    std::unique_ptr<privacy::ObfuscationFilter> obfuscating;
    if (rules.obfuscation != nullptr) obfuscating.reset(new privacy::ObfuscationFilter(*rules.obfuscation));
    privacy::FilterChain chain(first, obfuscating ? static_cast<privacy::TextFilter&>(*obfuscating)
                                                  : static_cast<privacy::TextFilter&>(noMasking));
    privacy::TextFilter& filter = obfuscating ? static_cast<privacy::TextFilter&>(chain) : first;
    std::string out;
    unsigned long long done = 0;
    int readError = 0;
    bool held = true;
    while (got > 0 && held) {
        done += static_cast<unsigned long long>(got);
        progress(static_cast<unsigned long long>(got));
        if (mask) {
            filter.feed(chunk, static_cast<size_t>(got), out);
            held = spill.append(out.data(), out.size());
            out.clear();
        } else {
            held = spill.append(chunk, static_cast<size_t>(got));
        }
        if (done >= limit) break;
        got = readSome(fd, chunk, static_cast<size_t>(limit - done < CHUNK ? limit - done : CHUNK));
        if (got < 0) readError = errno;
    }
    if (held && mask) {
        filter.finish(out);
        held = spill.append(out.data(), out.size());
    }
    if (!held) {
        result.warning = std::string("write of a member held in ") + spillFolder + " failed: " +
                         strerror(errno);
        return finish(result, false);
    }
    if (readError != 0 && done == 0) {
        result.warning = std::string("read failed: ") + strerror(readError);
        return result;
    }
    if (readError != 0) {
        result.warning = describeCut("read failed", done, limit == LARGEST_UNSIZED ? done : limit,
                                     readError, "packed up to there");
    } else if (done < limit && limit != LARGEST_UNSIZED) {
        result.warning = describeCut("shrank while packed", done, limit, 0, "packed up to there");
    }
    result.masked = masking.counts();
    if (obfuscating) result.obfuscated.add(obfuscating->counts());
    result.bytes = spill.size();
    result.bytesRead = done;
    result.outcome = PackedMember::PACKED;
    Entry entry = makeEntry(path, info, spill.size(), rules, result);
    return finish(result, entry && tar.writeHeader(entry.get()) &&
                              spill.replay([&tar](const char* data, size_t size) {
                                  return tar.writeData(data, size);
                              }) &&
                              tar.finishEntry());
}

/// Where a log larger than the cap begins to be packed: the first line start in its last
/// maxBytes; the cut point itself when no line starts there. The end of the file after its
/// last newline starts no line: a log whose last line outgrows the cap keeps that line's end.
off_t findCutStart(int fd, unsigned long long size, unsigned long long maxBytes) {
    off_t from = static_cast<off_t>(size - maxBytes);
    off_t end = static_cast<off_t>(size);
    char byte = '\n';
    if (from > 0 && pread(fd, &byte, 1, from - 1) == 1 && byte == '\n') return from;
    std::unique_ptr<char[]> chunk(new char[CHUNK]);
    for (off_t at = from; at < end;) {
        ssize_t got = pread(fd, chunk.get(), static_cast<size_t>(end - at < static_cast<off_t>(CHUNK)
                                                                     ? end - at : CHUNK), at);
        if (got <= 0) break;
        const void* newline = memchr(chunk.get(), '\n', static_cast<size_t>(got));
        if (newline != nullptr) {
            off_t start = at + (static_cast<const char*>(newline) - chunk.get()) + 1;
            return start < end ? start : from;
        }
        at += got;
    }
    return from;
}

PackedMember packFile(TarStream& tar, const std::string& path, int folder, const std::string& name,
                      const char* spillFolder,
                      const std::function<void(unsigned long long)>& progress,
                      const PackRules& rules) {
    PackedMember result;
    // O_NONBLOCK: should a FIFO be swapped in after the look, opening it must not wait.
    UniqueFd fd(openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info;
    if (!fd || fstat(fd.get(), &info) != 0) {
        result.warning = strerror(errno);
        return result;
    }
    if (!S_ISREG(info.st_mode)) {
        result.warning = "changed from a file to something else while packed";
        return result;
    }
    if (rules.isLog && rules.since > 0 && info.st_mtime < rules.since) {
        result.skipped = "last changed before the --since window";
        return result;
    }
    bool unsized = info.st_size == 0 && isKernelFile(path);
    unsigned long long limit = unsized ? LARGEST_UNSIZED : static_cast<unsigned long long>(info.st_size);
    if (rules.isLog && rules.maxLogBytes > 0 && !unsized && limit > rules.maxLogBytes) {
        off_t start = findCutStart(fd.get(), limit, rules.maxLogBytes);
        if (lseek(fd.get(), start, SEEK_SET) != start) {
            result.warning = std::string("seek failed: ") + strerror(errno);
            return result;
        }
        result.cutFrom = limit;
        limit -= static_cast<unsigned long long>(start);
        progress(static_cast<unsigned long long>(start));  // what is left out counts as done
    }
    std::unique_ptr<char[]> chunk(new char[CHUNK]);
    ssize_t got = limit == 0 ? 0 : readSome(fd.get(), chunk.get(), limit < CHUNK ? limit : CHUNK);
    if (got < 0) {
        result.warning = std::string("read failed: ") + strerror(errno);
        return result;
    }
    // A mapping holds every value obfuscation hides: it stays with the customer, even when a
    // listed folder holds the output folder, and whether or not this run obfuscates.
    if (isMappingName(name) || (got > 0 && privacy::looksLikeMapping(chunk.get(), static_cast<size_t>(got)))) {
        result.skipped = "an obfuscation mapping, which stays with the customer";
        return result;
    }
    bool mask = (work::maskSecrets || rules.obfuscation != nullptr) && got > 0 &&
                !privacy::looksBinary(chunk.get(), static_cast<size_t>(got));
    if (mask || unsized) {
        return packHeld(tar, path, fd.get(), info, mask, limit, chunk.get(), got, spillFolder,
                        progress, rules, result);
    }
    result.outcome = PackedMember::PACKED;
    Entry entry = makeEntry(path, info, limit, rules, result);
    if (!entry || !tar.writeHeader(entry.get())) return finish(result, false);
    unsigned long long done = 0;
    while (got > 0) {
        done += static_cast<unsigned long long>(got);
        progress(static_cast<unsigned long long>(got));
        if (!tar.writeData(chunk.get(), static_cast<size_t>(got))) return finish(result, false);
        if (done >= limit) break;
        got = readSome(fd.get(), chunk.get(), limit - done < CHUNK ? limit - done : CHUNK);
    }
    if (done < limit) {
        result.warning = describeCut(got < 0 ? "read failed" : "shrank while packed", done, limit,
                                     got < 0 ? errno : 0, "the rest is zeros");
    }
    result.bytes = limit;
    result.bytesRead = done;
    return finish(result, tar.finishEntry());
}

}  // namespace

PackedMember packMember(TarStream& tar, const std::string& path, const char* spillFolder,
                        const std::function<void(unsigned long long)>& progress,
                        const PackRules& rules) {
    PackedMember result;
    std::string name;
    UniqueFd folder(openTrustedParent(path, name));
    struct stat info;
    if (!folder || fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        result.warning = errno == ELOOP ? "passes through a symbolic link that root does not own"
                                        : strerror(errno);
        return result;
    }
    if (S_ISREG(info.st_mode))
        return packFile(tar, path, folder.get(), name, spillFolder, progress, rules);
    if (S_ISSOCK(info.st_mode)) {
        result.warning = "a socket, which a tar archive cannot hold";
        return result;
    }
    Entry entry = makeEntry(path, info, 0, rules, result);
    if (S_ISLNK(info.st_mode)) {
        char target[PATH_SIZE] = {};
        ssize_t length = readlinkat(folder.get(), name.c_str(), target, sizeof target - 1);
        if (length < 0) {
            result.warning = strerror(errno);
            return result;
        }
        archive_entry_copy_symlink(
            entry.get(), rules.obfuscation != nullptr
                             ? privacy::obfuscateName(*rules.obfuscation, target, &result.obfuscated).c_str()
                             : target);
    }
    result.outcome = PackedMember::PACKED;
    return finish(result, entry && tar.writeHeader(entry.get()) && tar.finishEntry());
}

bool packText(TarStream& tar, const std::string& path, const std::string& text) {
    struct stat info = {};
    info.st_mode = S_IFREG | 0600;
    info.st_mtime = time(nullptr);
    PackedMember unused;
    Entry entry = makeEntry(path, info, text.size(), PackRules(), unused);
    return entry && tar.writeHeader(entry.get()) && tar.writeData(text.data(), text.size()) &&
           tar.finishEntry();
}
