// A name like /etc/opt/../../proc/self/environ must meet the rules as the file it reaches, and a
// folder of the kernel's own (/proc, /sys) never ends and may block on a read: packing it would
// hold the run until its time limit.
#include "collect/member_paths.h"

#include <cstring>
#include <vector>

namespace {

const char* const SYSTEM_TREES[] = {"/proc", "/sys", "/dev", "/run"};

bool isAtOrBelow(const std::string& path, const char* tree) {
    size_t length = strlen(tree);
    return path.compare(0, length, tree) == 0 && (path.size() == length || path[length] == '/');
}

}  // namespace


const char* refusalReason(const std::string& path, bool folder) {
    if (path == "/") return "the root folder";
    for (const char* tree : SYSTEM_TREES) {
        if (folder && isAtOrBelow(path, tree)) return "a folder of the running system";
    }
    if (isAtOrBelow(path, "/proc")) {
        size_t slash = path.rfind('/');
        std::string name = path.substr(slash + 1);
        if (name == "environ" || name == "mem") return "a process's environment or memory";
    }
    return nullptr;
}
