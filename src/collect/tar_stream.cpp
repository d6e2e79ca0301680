// Writing the archive without a shell or a command line: any number of members, any names. pigz
// takes the compression to the second core; gatr feeds it through a pipe it polls against the
// archive's time limit, so a stuck compressor cannot hold the run.
#include "collect/tar_stream.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/child_process.h"
#include "common/search_path.h"
#include "frame/work.h"

TarStream::~TarStream() {
    if (tar != nullptr) archive_write_free(tar);  // frees without writing the end
    toPigz.reset();
    if (pigz.guard > 0) finishProgram(pigz, monotonicMs());
    if (pipeActionSaved) sigaction(SIGPIPE, &previousPipeAction, nullptr);
}

bool TarStream::fail(const char* what, int error) {
    if (!lost) {
        lost = true;
        reason = std::string(what) + (error != 0 ? std::string(": ") + strerror(error) : "");
    }
    return false;
}

bool TarStream::open(const char* temporary, long long deadlineMs) {
    deadline = deadlineMs;
    temporaryPath = temporary;
    file.reset(::open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return fail("open failed", errno);
    made = true;
    // A compressor that dies must end the archive with an error, not end gatr.
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    pipeActionSaved = sigaction(SIGPIPE, &ignore, &previousPipeAction) == 0;

    tar = archive_write_new();
    if (tar == nullptr) return fail("archive_write_new failed", ENOMEM);
    char pigzPath[PATH_SIZE];
    bool usePigz = findOnSearchPath("pigz", pigzPath, sizeof pigzPath);
    if (usePigz) {
        int input[2];
        int errors[2];
        if (pipe2(input, O_CLOEXEC) != 0) return fail("pipe failed", errno);
        UniqueFd readEnd(input[0]);
        toPigz.reset(input[1]);
        if (pipe2(errors, O_CLOEXEC | O_NONBLOCK) != 0) return fail("pipe failed", errno);
        pigzErrors.reset(errors[0]);
        UniqueFd errorEnd(errors[1]);
        const char* const argv[] = {pigzPath, "-c", nullptr};
        pigz = startProgram(argv, readEnd.get(), file.get(), errorEnd.get());
        if (pigz.guard < 0) return fail(("start of " + std::string(pigzPath) + " failed").c_str(), errno);
        fcntl(toPigz.get(), F_SETFL, O_NONBLOCK);
        // Room for a megabyte in flight: pigz keeps both cores busy while gatr reads and masks
        // the next member. The kernel's smaller default is kept when it refuses.
        fcntl(toPigz.get(), F_SETPIPE_SZ, 1 << 20);
        compressorName = std::string("pigz (") + pigzPath + ")";
    }
    bool ready = archive_write_set_format_pax_restricted(tar) == ARCHIVE_OK &&
                 (usePigz || archive_write_add_filter_gzip(tar) == ARCHIVE_OK) &&
                 archive_write_open(tar, this, nullptr, writeBlock, nullptr) == ARCHIVE_OK;
    if (!ready && !lost) fail(archive_error_string(tar), 0);
    return ready;
}

ssize_t TarStream::writeBlock(archive* tar, void* self, const void* data, size_t size) {
    auto* stream = static_cast<TarStream*>(self);
    if (stream->send(static_cast<const char*>(data), size)) return static_cast<ssize_t>(size);
    archive_set_error(tar, EIO, "%s", stream->reason.c_str());
    return -1;
}

bool TarStream::send(const char* data, size_t size) {
    if (lost) return false;
    int target = toPigz ? toPigz.get() : file.get();
    while (size > 0) {
        long long left = deadline - monotonicMs();
        if (left <= 0) {
            pastDeadline = true;
            return fail("time limit reached", 0);
        }
        ssize_t written = write(target, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno == EAGAIN) {
            struct pollfd ready = {target, POLLOUT, 0};
            poll(&ready, 1, static_cast<int>(left > 1000 ? 1000 : left));
            continue;
        }
        if (written <= 0) {
            return fail(toPigz ? "write to pigz failed" : "write failed",
                        written < 0 ? errno : EIO);
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool TarStream::writeHeader(archive_entry* entry) {
    if (lost) return false;
    int result = archive_write_header(tar, entry);
    // A warning is a name that cannot be told in UTF-8: written as its bytes, still a member.
    if (result == ARCHIVE_OK || result == ARCHIVE_WARN) return true;
    if (!lost) fail(archive_error_string(tar), 0);
    return false;
}

bool TarStream::writeData(const char* data, size_t size) {
    if (lost) return false;
    while (size > 0) {
        la_ssize_t written = archive_write_data(tar, data, size);
        if (written <= 0) {
            if (!lost) fail(archive_error_string(tar), 0);
            return false;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool TarStream::finishEntry() {
    if (lost) return false;
    if (archive_write_finish_entry(tar) == ARCHIVE_OK) return true;
    if (!lost) fail(archive_error_string(tar), 0);
    return false;
}

void TarStream::collectPigzWords() {
    char words[1024];
    ssize_t got = pigzErrors ? read(pigzErrors.get(), words, sizeof words - 1) : -1;
    if (got <= 0) return;
    words[got] = '\0';
    std::string text(words, strcspn(words, "\n"));
    if (!text.empty()) reason += " (" + text + ")";
}

bool TarStream::close() {
    if (tar == nullptr) return fail("archive never opened", 0);
    bool ended = !lost && archive_write_close(tar) == ARCHIVE_OK;
    if (!ended && !lost) fail(archive_error_string(tar), 0);
    archive_write_free(tar);
    tar = nullptr;
    if (pigz.guard > 0) {
        toPigz.reset();  // end of input: pigz writes its last block and ends
        bool stopped = false;
        int status = finishProgram(pigz, deadline, &stopped);
        pigz = GuardedChild();
        if (stopped) {
            pastDeadline = true;
            ended = fail("time limit reached", 0);
        } else if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
            ended = fail("pigz failed", 0);
        }
        if (lost) collectPigzWords();
    }
    if (file.reset() != 0 && ended) ended = fail("close failed", errno);
    return ended;
}
