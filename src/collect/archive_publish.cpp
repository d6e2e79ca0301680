// Publishing the archive. Every file appears under its final name only when complete, by
// rename, so neither a killed run nor a full disk leaves a name that points at half a file.
#include "collect/archive_publish.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/crypto.h"
#include "frame/folders.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

constexpr char SUFFIX[] = ".tar.gz";
constexpr size_t SUFFIX_LENGTH = sizeof SUFFIX - 1;
constexpr int LAST_NUMBER = 999;

bool isTaken(const char* path) {
    struct stat info;
    return lstat(path, &info) == 0;
}

/// Flushes the file's data to the disk: the settings file, synced itself, will name it.
bool syncFile(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool synced = fsync(fd) == 0;
    return close(fd) == 0 && synced;
}

bool writeChecksum(const char* path, const char* hash, const char* name) {
    FILE* file = fopen(path, "wbe");
    if (file == nullptr) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fopen on %s failed: %s", path, strerror(errno));
        return false;
    }
    bool written = fprintf(file, "%s  %s\n", hash, name) > 0;
    return closeSynced(file, path) && written;
}


bool renameLogged(const char* from, const char* to) {
    if (rename(from, to) == 0) return true;
    logError(__FILE__, __LINE__, STATUS_ERROR, "rename of %s to %s failed: %s", from, to,
             strerror(errno));
    return false;
}

}  // namespace

bool chooseFreeArchivePath(char* path, size_t size) {
    size_t length = strlen(path);
    char stem[PATH_SIZE] = {};
    if (length < SUFFIX_LENGTH || length - SUFFIX_LENGTH >= sizeof stem) return false;
    memcpy(stem, path, length - SUFFIX_LENGTH);
    char candidate[PATH_SIZE];
    char checksum[PATH_SIZE + 8];
    for (int number = 1; number <= LAST_NUMBER; ++number) {
        int written = number == 1 ? snprintf(candidate, sizeof candidate, "%s%s", stem, SUFFIX)
                                  : snprintf(candidate, sizeof candidate, "%s-%d%s", stem, number,
                                             SUFFIX);
        if (written < 0 || static_cast<size_t>(written) >= size ||
            static_cast<size_t>(written) >= sizeof candidate) {
            break;
        }
        snprintf(checksum, sizeof checksum, "%s.sha256", candidate);
        if (!isTaken(candidate) && !isTaken(checksum)) {
            memcpy(path, candidate, static_cast<size_t>(written) + 1);
            return true;
        }
    }
    logError(__FILE__, __LINE__, STATUS_ERROR, "no free archive name for %s: up to -%d taken",
             path, LAST_NUMBER);
    return false;
}

int publishArchive(const char* temporary, const char* archivePath) {
    char checksum[PATH_SIZE + 8];
    char checksumTemporary[PATH_SIZE + 16];
    snprintf(checksum, sizeof checksum, "%s.sha256", archivePath);
    snprintf(checksumTemporary, sizeof checksumTemporary, "%s.tmp", checksum);
    const char* slash = strrchr(archivePath, '/');
    const char* name = slash != nullptr ? slash + 1 : archivePath;

    char hash[SHA256_HASH_SIZE] = {};
    Crypto crypto;
    bool done = crypto.computeSha256Hash(temporary, hash) == 0;
    if (done && !syncFile(temporary)) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fsync on %s failed: %s", temporary,
                 strerror(errno));
        done = false;
    }
    // The checksum first: an archive under its final name always has one beside it.
    done = done && writeChecksum(checksumTemporary, hash, name) &&
           renameLogged(checksumTemporary, checksum);
    if (done && !renameLogged(temporary, archivePath)) {
        unlink(checksum);
        done = false;
    }
    if (done) {
        syncFolderOf(archivePath);
        return 0;
    }
    unlink(checksumTemporary);
    unlink(temporary);
    return -1;
}
