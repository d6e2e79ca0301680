// The member list. tar reads it NUL-separated, so a name of any length or content, a leading
// '-' included, reaches tar as the name it is and nothing is ever cut or parsed.
#include "collect/archive_members.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "frame/folders.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// The system's message log goes into every archive, whatever the sections found.
constexpr char SYSTEM_LOG[] = "/var/log/messages";

bool writeName(FILE* file, const char* name, size_t length) {
    return fwrite(name, 1, length + 1, file) == length + 1;
}

}  // namespace

void addRunFiles(std::list<std::string>& entries) {
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "%s/logs/%s.log", work::outputFolder, PROGRAM_NAME);
    entries.emplace_back(path);
    snprintf(path, sizeof path, "%s/logs/%s_errors.log", work::outputFolder, PROGRAM_NAME);
    entries.emplace_back(path);

    // The folder was emptied at start, so each regular file in it is this run's; folders left
    // by earlier runs, and links, are not.
    char logs[PATH_SIZE];
    snprintf(logs, sizeof logs, "%s/logs", work::outputFolder);
    std::vector<std::string> names;
    getDirectoryList(logs, names);
    for (const std::string& name : names) {
        snprintf(path, sizeof path, "%s/%s", logs, name.c_str());
        struct stat info;
        if (lstat(path, &info) == 0 && S_ISREG(info.st_mode)) entries.emplace_back(path);
    }
}

int writeMemberList(const char* path, const std::list<std::string>& entries) {
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "wbe"));
    if (!file) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fopen on %s failed: %s", path, strerror(errno));
        return -1;
    }
    bool complete = writeName(file.get(), SYSTEM_LOG, strlen(SYSTEM_LOG));
    for (auto it = entries.begin(); complete && it != entries.end(); ++it) {
        complete = writeName(file.get(), it->c_str(), it->size());
    }
    complete = complete && fflush(file.get()) == 0;
    int error = errno;
    if (fclose(file.release()) != 0 && complete) {
        complete = false;
        error = errno;
    }
    if (!complete) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fwrite on file %s failed: %s", path,
                 strerror(error));
        return -1;
    }
    return 0;
}
