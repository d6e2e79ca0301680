// A user who can write a folder that a manifest lists could otherwise plant a link there and have
// root pack, empty or overwrite whatever the link names (an id_rsa, /etc/shadow).
#include "frame/trusted_paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>

#include "common/unique_fd.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

constexpr int MAX_LINKS = 40;  // as the kernel counts them

bool isRootOnlyFolder(const std::string& folder) {
    struct stat info;
    return stat(folder.empty() ? "/" : folder.c_str(), &info) == 0 && info.st_uid == 0 &&
           (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

void splitInto(const std::string& path, std::deque<std::string>& parts, bool front) {
    std::deque<std::string> found;
    for (size_t begin = 0; begin <= path.size();) {
        size_t slash = path.find('/', begin);
        if (slash == std::string::npos) slash = path.size();
        if (slash > begin) found.push_back(path.substr(begin, slash - begin));
        begin = slash + 1;
    }
    if (front) parts.insert(parts.begin(), found.begin(), found.end());
    else parts.insert(parts.end(), found.begin(), found.end());
}

/// Whether the link open as link, found in the folder open as folder, may be followed.
bool isTrustedLink(int folder, const struct stat& link) {
    struct stat info;
    return link.st_uid == 0 && fstat(folder, &info) == 0 && info.st_uid == 0 &&
           (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

int openTrustedParent(const std::string& path, std::string& last) {
    std::deque<std::string> rest;
    splitInto(path, rest, false);
    if (rest.empty()) {
        errno = EINVAL;
        return -1;
    }
    last = rest.back();
    rest.pop_back();
    const int flags = O_PATH | O_CLOEXEC;
    UniqueFd folder(open(path[0] == '/' ? "/" : ".", flags | O_DIRECTORY));
    int links = 0;
    while (folder && !rest.empty()) {
        std::string part = rest.front();
        rest.pop_front();
        if (part == ".") continue;
        UniqueFd next(openat(folder.get(), part.c_str(), flags | O_NOFOLLOW));
        struct stat info;
        if (!next || fstat(next.get(), &info) != 0) return -1;
        if (!S_ISLNK(info.st_mode)) {
            folder = std::move(next);
            continue;
        }
        char target[PATH_SIZE] = {};
        ssize_t length = -1;
        if (isTrustedLink(folder.get(), info) && ++links <= MAX_LINKS) {
            length = readlinkat(next.get(), "", target, sizeof target - 1);
        }
        if (length <= 0) {
            errno = ELOOP;
            return -1;
        }
        target[length] = '\0';
        splitInto(target, rest, true);
        if (target[0] == '/') folder.reset(open("/", flags | O_DIRECTORY));
    }
    return folder.release();
}

bool isTrustedPath(const char* path) {
    if (path == nullptr || path[0] != '/') return true;  // relative names are the program's own
    std::string done;           // the resolved part, without a trailing '/'
    std::string rest(path + 1);  // what is still to walk
    int links = 0;
    while (!rest.empty()) {
        size_t slash = rest.find('/');
        std::string part = rest.substr(0, slash);
        rest = slash == std::string::npos ? "" : rest.substr(slash + 1);
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            size_t up = done.rfind('/');
            done = up == std::string::npos ? "" : done.substr(0, up);
            continue;
        }
        std::string next = done + "/" + part;
        struct stat info;
        if (lstat(next.c_str(), &info) != 0) return true;
        if (!S_ISLNK(info.st_mode)) {
            done = next;
            continue;
        }
        if (info.st_uid != 0 || !isRootOnlyFolder(done) || ++links > MAX_LINKS) return false;
        char target[PATH_SIZE] = {};
        ssize_t length = readlink(next.c_str(), target, sizeof target - 1);
        if (length <= 0) return false;
        target[length] = '\0';
        if (target[0] == '/') done.clear();
        rest = rest.empty() ? std::string(target) : std::string(target) + "/" + rest;
    }
    return true;
}

void dropUntrustedPaths(std::list<std::string>& paths) {
    for (auto it = paths.begin(); it != paths.end();) {
        if (isTrustedPath(it->c_str())) {
            ++it;
            continue;
        }
        logError(__FILE__, __LINE__, STATUS_WARNING,
                 "%s passes through a symbolic link that root does not own: not gathered",
                 it->c_str());
        it = paths.erase(it);
    }
}
