// Scheduling and I/O priority, set once at start so that every child inherits them.
#include "frame/priority.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "frame/logging.h"
#include "frame/work.h"

namespace {

// The kernel's I/O priority encoding; the C library has no wrapper for it.
constexpr int IOPRIO_WHO_PROCESS = 1;
constexpr int IOPRIO_CLASS_BEST_EFFORT = 2;
constexpr int IOPRIO_CLASS_SHIFT = 13;
constexpr int LOW_NICE = 10;
constexpr int LOW_IO_LEVEL = 7;

}  // namespace

bool lowerPriority() {
    if (!work::limits.lowPriority || (work::options & OPT_NORMAL_PRIORITY) != 0) return false;
    bool lowered = true;
    if (setpriority(PRIO_PROCESS, 0, LOW_NICE) != 0) {
        logError(__FILE__, __LINE__, STATUS_WARNING, "setpriority to nice %d failed: %s", LOW_NICE,
                 strerror(errno));
        lowered = false;
    }
    if (syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0,
                (IOPRIO_CLASS_BEST_EFFORT << IOPRIO_CLASS_SHIFT) | LOW_IO_LEVEL) != 0) {
        logError(__FILE__, __LINE__, STATUS_WARNING, "ioprio_set to best-effort %d failed: %s",
                 LOW_IO_LEVEL, strerror(errno));
        lowered = false;
    }
    return lowered;
}
