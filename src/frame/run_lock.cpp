// The output folder's lock. flock rather than a pid file alone: the kernel drops the lock when
// its holder dies, however it dies, so a killed run never blocks the next one.
#include "frame/run_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "frame/folders.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

// Never closed: closing it would release the lock before the process ends.
int lockFd = -1;
int lockFailure = 0;
char lockPath[PATH_SIZE] = {};

/// The pid the holder wrote. It writes it just after taking the lock, so an empty file gets
/// a moment before it is taken for what it says.
long readHolder(int fd) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        char text[32] = {};
        ssize_t got = pread(fd, text, sizeof text - 1, 0);
        long pid = got > 0 ? strtol(text, nullptr, 10) : 0;
        if (pid > 0) return pid;
        struct timespec nap = {0, 10 * 1000000};
        nanosleep(&nap, nullptr);
    }
    return 0;
}

void recordHolder(int fd) {
    char text[32];
    int length = snprintf(text, sizeof text, "%ld\n", static_cast<long>(getpid()));
    // Should this fail, the lock holds all the same; only the pid shown to others is lost.
    if (ftruncate(fd, 0) == 0) {
        ssize_t written = pwrite(fd, text, static_cast<size_t>(length), 0);
        (void)written;
    }
}

}  // namespace

int lockOutputFolder(const char* folder) {
    snprintf(lockPath, sizeof lockPath, "%s/.lock", folder);
    int fd = open(lockPath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        lockFailure = errno;
        return 0;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            lockFailure = errno;
            close(fd);
            return 0;
        }
        long holder = readHolder(fd);
        close(fd);
        fprintf(stderr, "%s: ", PROGRAM_NAME);
        fprintf(stderr, _("another gatr run is in progress (process %ld)"), holder);
        fprintf(stderr, "\n");
        return -1;
    }
    lockFd = fd;
    recordHolder(fd);
    return 0;
}

void reportUnguardedRun() {
    if (lockFailure == 0) return;
    logError(__FILE__, __LINE__, STATUS_WARNING,
             _("unable to lock %s: %s - a second run at the same time is not refused"), lockPath,
             strerror(lockFailure));
}

void removeStaleTemporaries(const char* folder) {
    std::vector<std::string> entries;
    getDirectoryList(folder, entries);
    char path[PATH_SIZE];
    for (const std::string& entry : entries) {
        size_t length = entry.size();
        if (length < 4 || entry.compare(length - 4, 4, ".tmp") != 0) continue;
        snprintf(path, sizeof path, "%s/%s", folder, entry.c_str());
        // A link of that name goes too: tar would write through it.
        struct stat info;
        if (lstat(path, &info) == 0 && !S_ISDIR(info.st_mode)) unlink(path);
    }
}
