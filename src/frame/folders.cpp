// The output folder and the file-system helpers.
#include "frame/folders.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/run_lock.h"
#include "frame/trusted_paths.h"
#include "frame/work.h"

namespace {

bool pathExists(const char* path) {
    struct stat info;
    return stat(path, &info) == 0;
}

int createOne(const char* path) {
    if (pathExists(path)) return 0;
    if (mkdir(path, 0775) != 0) {
        int error = errno;
        logError(__FILE__, __LINE__, STATUS_ERROR, "mkdir on %s failed: %s\n", path,
                 strerror(error));
        errno = error;  // the caller names the same reason
        return -1;
    }
    return 0;
}

/// makeDirectory, saying on standard error why it failed; 0 or -1.
int makeFolderOrSay(const char* path) {
    if (makeDirectory(path) == 0) return 0;
    fprintf(stderr, "%s: %s %s: %s\n", PROGRAM_NAME, _("failed to create folder"), path,
            strerror(errno));
    return -1;
}

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

}  // namespace

int makeDirectory(const char* path) {
    const char* first = strchr(path, '/');
    if (first == nullptr) return -1;
    char prefix[PATH_SIZE] = {};
    // The part in front of the first '/' is the root for absolute paths and is never made.
    for (const char* slash = strchr(first + 1, '/'); slash != nullptr;
         slash = strchr(slash + 1, '/')) {
        size_t length = static_cast<size_t>(slash - path);
        if (length >= sizeof prefix) return -1;
        memcpy(prefix, path, length);
        prefix[length] = '\0';
        if (length > 0 && createOne(prefix) == -1) return -1;
    }
    return createOne(path);
}

int removeDirectory(const char* path, bool removeSelf) {
    std::vector<std::string> entries;
    getDirectoryList(path, entries);
    bool entryFailed = false;
    char entryPath[PATH_SIZE];
    for (const std::string& entry : entries) {
        snprintf(entryPath, sizeof entryPath, "%s/%s", path, entry.c_str());
        if (remove(entryPath) != 0) entryFailed = true;
    }
    if (removeSelf && remove(path) != 0) return -1;
    return entryFailed ? -1 : 0;
}

void getDirectoryList(const char* path, std::vector<std::string>& entries) {
    entries.clear();
    std::unique_ptr<DIR, DirCloser> dir(opendir(path));
    if (!dir) {
        char message[PATH_SIZE + 64];
        snprintf(message, sizeof message, "Invalid Handle for file %s\n", path);
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s", message);
        return;
    }
    while (struct dirent* entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        entries.emplace_back(entry->d_name);
    }
}

int createOutputFolder() {
    memset(work::outputFolder, 0, sizeof work::outputFolder);
    snprintf(work::outputFolder, sizeof work::outputFolder, "%s/Brimwell/%s", "/var/opt",
             PROGRAM_NAME);
    // What gatr gathers, and what its children write, is for root alone.
    umask(077);
    if (!isTrustedPath(work::outputFolder)) {
        fprintf(stderr, "%s: %s %s: %s\n", PROGRAM_NAME, _("failed to create folder"),
                work::outputFolder, "a symbolic link that root does not own is on its path");
        return -1;
    }
    if (makeFolderOrSay(work::outputFolder) != 0) return -1;
    // Before anything is made, emptied or removed: a run in progress keeps its logs and files.
    if (lockOutputFolder(work::outputFolder) != 0) return -1;
    chmod(work::outputFolder, 0700);
    removeStaleTemporaries(work::outputFolder);

    char logs[PATH_SIZE] = {};
    snprintf(logs, sizeof logs, "%s/logs", work::outputFolder);
    if (!isTrustedPath(logs)) {
        // Never emptied through the link: the link itself goes, and a folder takes its place.
        logError(__FILE__, __LINE__, STATUS_WARNING,
                 "%s was a symbolic link that root does not own: replaced by a folder", logs);
        unlink(logs);
    }
    if (makeFolderOrSay(logs) != 0) return -1;
    removeDirectory(logs, false);

    snprintf(work::settingsFileName, sizeof work::settingsFileName, "%s/.settings",
             work::outputFolder);
    if (pathExists(work::settingsFileName) && isTrustedPath(work::settingsFileName) &&
        work::settings.loadDocument(work::settingsFileName) == 0) {
        return 0;
    }
    if (work::settings.createDocument(JSON_OBJECT) != 0) {
        fprintf(stderr, "%s: %s\n", PROGRAM_NAME, _("failed to create the settings file"));
        return -1;
    }
    work::settings.setValue<int>("version", JSON_INTEGER, 1);
    work::settings.setValue<void*>("last_archive_file", JSON_NULL, nullptr);
    return 0;
}

bool closeSynced(FILE* file, const char* path) {
    bool complete = fflush(file) == 0 && ferror(file) == 0 && fsync(fileno(file)) == 0;
    int error = errno;
    if (fclose(file) != 0 && complete) {
        complete = false;
        error = errno;
    }
    if (!complete) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fwrite on file %s failed: %s", path,
                 strerror(error));
    }
    return complete;
}

bool syncFolderOf(const char* path) {
    char folder[PATH_SIZE] = {};
    const char* slash = strrchr(path, '/');
    snprintf(folder, sizeof folder, "%.*s", slash == nullptr ? 1 : slash == path ? 1
                                                 : static_cast<int>(slash - path),
             slash == nullptr ? "." : path);
    int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    bool synced = fd >= 0 && fsync(fd) == 0;
    int error = errno;
    if (fd >= 0) close(fd);
    if (!synced) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fsync on %s failed: %s", folder,
                 strerror(error));
    }
    return synced;
}

std::string normalisePath(const std::string& path) {
    bool absolute = !path.empty() && path[0] == '/';
    std::vector<std::string> parts;
    for (size_t begin = 0; begin <= path.size();) {
        size_t slash = path.find('/', begin);
        if (slash == std::string::npos) slash = path.size();
        std::string part = path.substr(begin, slash - begin);
        begin = slash + 1;
        if (part.empty() || part == ".") continue;
        if (part == ".." && !parts.empty() && parts.back() != "..") {
            parts.pop_back();
        } else if (part != ".." || !absolute) {
            parts.push_back(part);
        }
    }
    std::string normal = absolute ? "/" : "";
    for (size_t i = 0; i < parts.size(); ++i) normal += (i > 0 ? "/" : "") + parts[i];
    return normal.empty() ? "." : normal;
}
