// The mapping file holds every original value the customer must keep in the house, so it is
// read and written like a key: root's alone, never through a link someone else could plant, and
// a file that is not whole is set aside rather than trusted or silently lost.
#include "collect/obfuscation_setup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "collect/obfuscation_facts.h"
#include "frame/folders.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/report.h"
#include "frame/trusted_paths.h"
#include "frame/work.h"

namespace {

constexpr off_t MAP_FILE_LIMIT = 64 << 20;

std::unique_ptr<privacy::ObfuscationMap> runMap;

struct Descriptor {
    int fd;
    explicit Descriptor(int opened) : fd(opened) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
};

std::string mapFilePath() { return std::string(work::outputFolder) + "/" + OBFUSCATION_MAP_FILE; }

void setAside(const std::string& path, const char* reason) {
    std::string aside = path + ".bad";
    if (rename(path.c_str(), aside.c_str()) != 0) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "rename of %s to %s failed: %s", path.c_str(), aside.c_str(),
                 strerror(errno));
        unlink(path.c_str());
    }
    logError(__FILE__, __LINE__, STATUS_WARNING, "%s was %s: kept aside as %s and a new mapping begins",
             path.c_str(), reason, aside.c_str());
}

/// Loads the kept mapping into map; a file that cannot be trusted or read whole is set aside.
void loadKeptMap(privacy::ObfuscationMap& map) {
    const std::string path = mapFilePath();
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) return;  // the first run on this machine
    if (S_ISLNK(info.st_mode) && !isTrustedPath(path.c_str())) {
        setAside(path, "a symbolic link that root does not own");
        return;
    }
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | (S_ISLNK(info.st_mode) ? 0 : O_NOFOLLOW)));
    if (file.fd < 0 || fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        setAside(path, "not a file gatr can read");
        return;
    }
    if (info.st_uid != geteuid()) {
        setAside(path, "owned by another user");
        return;
    }
    std::string text;
    if (info.st_size <= MAP_FILE_LIMIT) {
        text.resize(static_cast<size_t>(info.st_size));
        size_t got = 0;
        ssize_t count = 1;
        while (got < text.size() && (count = read(file.fd, &text[got], text.size() - got)) > 0) got += static_cast<size_t>(count);
        text.resize(got);
    }
    if (info.st_size > MAP_FILE_LIMIT || !map.load(text)) setAside(path, "damaged");
}

/// Writes text to path through a 0600 temporary that takes its place by rename; 0 or -1 (logged).
int writePrivately(const std::string& path, const std::string& text) {
    char temporary[PATH_SIZE + 32];
    snprintf(temporary, sizeof temporary, "%s.%ld.tmp", path.c_str(), static_cast<long>(getpid()));
    unlink(temporary);
    {
        Descriptor file(open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (file.fd < 0) {
            logError(__FILE__, __LINE__, STATUS_ERROR, "open on %s failed: %s", temporary, strerror(errno));
            return -1;
        }
        size_t written = 0;
        ssize_t count = 1;
        while (written < text.size() && (count = write(file.fd, text.data() + written, text.size() - written)) > 0)
            written += static_cast<size_t>(count);
        if (written != text.size() || fchmod(file.fd, 0600) != 0 || fsync(file.fd) != 0) {
            logError(__FILE__, __LINE__, STATUS_ERROR, "fwrite on file %s failed: %s", temporary, strerror(errno));
            unlink(temporary);
            return -1;
        }
    }
    if (rename(temporary, path.c_str()) != 0) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "rename of %s to %s failed: %s", temporary, path.c_str(),
                 strerror(errno));
        unlink(temporary);
        return -1;
    }
    syncFolderOf(path.c_str());
    return 0;
}

}  // namespace

privacy::ObfuscationMap* prepareObfuscation() {
    if ((work::options & OPT_OBFUSCATE) == 0) return nullptr;
    if (runMap) return runMap.get();
    runMap.reset(new privacy::ObfuscationMap());
    loadKeptMap(*runMap);
    runMap->configure(gatherObfuscationFacts());
    return runMap.get();
}

privacy::ObfuscationMap* obfuscationMap() { return runMap.get(); }

int finishObfuscation(const char* archivePath) {
    if (!runMap) return 1;
    int status = writePrivately(mapFilePath(), runMap->save());
    if (archivePath != nullptr && archivePath[0] != '\0' &&
        writePrivately(std::string(archivePath) + ARCHIVE_MAP_SUFFIX, runMap->saveUsed()) != 0)
        status = -1;
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", obfuscationSummary().c_str());
    return status;
}

std::string obfuscationSummary() {
    if (!runMap) return "";
    std::string summary = "obfuscation on: values replaced: ";
    for (int kind = 0; kind < privacy::OBF_KIND_COUNT; ++kind) {
        summary += kind == 0 ? "" : ", ";
        summary += privacy::obfuscationKindName(kind);
        summary += " " + std::to_string(runMap->usedCount(kind));
    }
    return summary;
}

