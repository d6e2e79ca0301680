// The archive's bytes: tar records written by libarchive (pax, read by every GNU tar, names of
// any length), compressed by pigz as a child when it is on the search path, by zlib otherwise.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>

#include "common/guarded_spawn.h"
#include "common/unique_fd.h"

struct archive;
struct archive_entry;

class TarStream {
public:
    TarStream() = default;
    /// An archive never closed is abandoned: pigz stopped, the file left to the caller to remove.
    ~TarStream();
    TarStream(const TarStream&) = delete;
    TarStream& operator=(const TarStream&) = delete;

    /// Creates temporary, refusing a name that already exists even as a link, and starts the
    /// compression; every write must be done by deadlineMs (monotonicMs). False when it cannot.
    bool open(const char* temporary, long long deadlineMs);
    /// One member's header, then its data; false once the archive is lost (see failure()).
    bool writeHeader(archive_entry* entry);
    bool writeData(const char* data, size_t size);
    /// Ends the member, padding it with zeros to the size its header stated.
    bool finishEntry();
    /// Writes the archive's end and waits for the compressor; true when the file is complete
    /// (written and closed; its fsync is the publisher's).
    bool close();
    /// Why the archive is lost, and pigz's own words on it when it said any.
    const std::string& failure() const { return reason; }
    bool timedOut() const { return pastDeadline; }
    /// Whether open made the file at temporary (and so may remove it).
    bool madeFile() const { return made; }
    /// "pigz" with its path, or "zlib".
    const std::string& compressor() const { return compressorName; }

private:
    static ssize_t writeBlock(archive* tar, void* self, const void* data, size_t size);
    bool send(const char* data, size_t size);
    bool fail(const char* what, int error);
    void collectPigzWords();

    archive* tar = nullptr;
    UniqueFd file;
    UniqueFd toPigz;
    UniqueFd pigzErrors;
    GuardedChild pigz;
    long long deadline = 0;
    bool lost = false;
    bool made = false;
    bool pastDeadline = false;
    std::string reason;
    std::string compressorName = "zlib";
    std::string temporaryPath;
    struct sigaction previousPipeAction = {};
    bool pipeActionSaved = false;
};
