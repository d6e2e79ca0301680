// A user who can write a folder that a manifest lists could otherwise plant a link there and have
// root pack, empty or overwrite whatever the link names (an id_rsa, /etc/shadow).
#include "frame/trusted_paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "frame/logging.h"
#include "frame/work.h"

namespace {

constexpr int MAX_LINKS = 40;  // as the kernel counts them

bool isRootOnlyFolder(const std::string& folder) {
    struct stat info;
    return stat(folder.empty() ? "/" : folder.c_str(), &info) == 0 && info.st_uid == 0 &&
           (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

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
