// The search-path lookup; only asks, never runs anything.
#include "common/search_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/work.h"

bool isOnSearchPath(const char* name) {
    char found[PATH_SIZE];
    return findOnSearchPath(name, found, sizeof found);
}

bool findOnSearchPath(const char* name, char* found, size_t size) {
    const char* path = getenv("PATH");
    if (path == nullptr || name[0] == '\0' || strchr(name, '/') != nullptr) return false;
    char candidate[PATH_SIZE];
    for (const char* start = path;; ) {
        const char* end = strchr(start, ':');
        size_t length = end != nullptr ? static_cast<size_t>(end - start) : strlen(start);
        int written = length == 0 ? snprintf(candidate, sizeof candidate, "./%s", name)
                                  : snprintf(candidate, sizeof candidate, "%.*s/%s",
                                             static_cast<int>(length), start, name);
        struct stat info;
        if (written > 0 && static_cast<size_t>(written) < sizeof candidate &&
            stat(candidate, &info) == 0 && S_ISREG(info.st_mode) && access(candidate, X_OK) == 0) {
            snprintf(found, size, "%s", candidate);
            return true;
        }
        if (end == nullptr) return false;
        start = end + 1;
    }
}
