// The members as the archive holds them: a folder is followed by what it holds, sorted, so that
// two runs over the same files pack them in the same order.
#include "collect/archive_members.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "collect/member_paths.h"
#include "common/unique_fd.h"
#include "frame/file.h"
#include "frame/folders.h"
#include "frame/logging.h"
#include "frame/masking.h"
#include "frame/run_record.h"
#include "frame/trusted_paths.h"
#include "frame/work.h"

namespace {

void warnLeftOut(const std::string& path, const char* why) {
    logError(__FILE__, __LINE__, STATUS_WARNING, "%s: not gathered: %s", path.c_str(), why);
    MemberRecord record;
    record.path = path;
    record.leftOut = why;
    recordMember(record);
}

/// The names in the folder open as folder/name, sorted byte-wise; false when it cannot be listed.
bool listFolder(int folder, const std::string& name, std::vector<std::string>& names) {
    UniqueFd fd(openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    DIR* listing = fd ? fdopendir(fd.get()) : nullptr;
    if (listing == nullptr) return false;
    fd.release();
    while (const dirent* entry = readdir(listing)) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    closedir(listing);
    std::sort(names.begin(), names.end());
    return true;
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

void maskChildErrorsFile(const char* path) {
    std::string text;
    {
        File file(path, "rb");
        if (!work::maskSecrets || !file) return;
        char block[8192];
        size_t got;
        while ((got = fread(block, 1, sizeof block, file.get())) > 0) text.append(block, got);
    }
    if (text.find('\0') != std::string::npos) return;
    std::string masked;
    size_t count = 0;
    for (size_t begin = 0; begin < text.size();) {
        size_t end = text.find('\n', begin);
        end = end == std::string::npos ? text.size() : end + 1;
        std::string line = text.substr(begin, end - begin);
        count += maskLine(line);
        masked += line;
        begin = end;
    }
    if (count == 0) return;
    File out(path, "wb");
    if (!out || fwrite(masked.data(), 1, masked.size(), out.get()) != masked.size()) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s: masking failed", path);
    }
}

void addMemberTree(const std::string& path, MemberList& members) {
    if (!members.seen.insert(path).second) return;
    if (path == "/") {  // nothing holds it, so there is nothing to look at it through
        warnLeftOut(path, refusalReason(path, true));
        return;
    }
    std::string name;
    UniqueFd folder(openTrustedParent(path, name));
    struct stat info;
    if (!folder || fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        warnLeftOut(path, errno == ELOOP ? "passes through a symbolic link that root does not own"
                                         : strerror(errno));
        return;
    }
    bool isFolder = S_ISDIR(info.st_mode);
    if (const char* refusal = refusalReason(path, isFolder)) {
        warnLeftOut(path, refusal);
        return;
    }
    members.paths.push_back(path);
    unsigned long long size = S_ISREG(info.st_mode) ? static_cast<unsigned long long>(info.st_size) : 0;
    members.sizes.push_back(size);
    members.bytes += size;
    if (!isFolder) return;
    std::vector<std::string> names;
    if (!listFolder(folder.get(), name, names)) {
        logError(__FILE__, __LINE__, STATUS_WARNING, "%s: its content not gathered: %s",
                 path.c_str(), strerror(errno));
        return;
    }
    folder.reset();
    for (const std::string& entry : names) {
        addMemberTree(path == "/" ? "/" + entry : path + "/" + entry, members);
    }
}
