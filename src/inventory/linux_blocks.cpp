// Copying a command's output into the main log.
#include "inventory/linux_blocks.h"

#include <cstdio>
#include <cstring>

#include "common/search_path.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "common/child_process.h"
#include "frame/report.h"
#include "frame/work.h"

namespace {

/// Whether a line of a verbose repository listing belongs in the report.
bool isRepositoryLine(const char* line) {
    return strcmp(line, "\n") == 0 || strncmp(line, "Repo-", 5) == 0;
}

}  // namespace

bool isErrorLine(const char* line) {
    return strstr(line, "error") != nullptr || strstr(line, "ERROR") != nullptr;
}

bool writeIfNotInstalled(const char* heading, const char* program) {
    // Said in the block itself: the shell's "not found" would reach only the stderr log, and
    // an empty block reads as a machine without adapters or connections.
    if (isOnSearchPath(program)) return false;
    FILE* out = work::logOs;
    if (heading != nullptr) fprintf(out, "%s\n", heading);
    fprintf(out, "  ");
    // TRANSLATORS: %s is a program's name, such as lspci or netstat.
    fprintf(out, _("%s: not installed"), program);
    fprintf(out, "\n\n");
    return true;
}

bool copyCommandBlock(const char* heading, const char* command, const char* word,
                      LineFilter filter, size_t lineSize) {
    Pipe pipe(command);
    if (!pipe) {
        logPopenFailure(LINUX_SOURCE, __LINE__, word);
        return false;
    }
    FILE* out = work::logOs;
    if (heading != nullptr) fprintf(out, "%s\n", heading);
    readCommandLines(pipe.get(), lineSize, [&](const char* line) {
        if (filter != LineFilter::None && isErrorLine(line)) {
            logError(LINUX_SOURCE, __LINE__, STATUS_ERROR, "%s", line);
            return;
        }
        if (filter == LineFilter::Repositories && !isRepositoryLine(line)) return;
        fprintf(out, "  %s", line);
    });
    fprintf(out, "\n");
    return true;
}

bool copyCommandToFile(const char* path, const std::function<void(FILE*)>& writeHeading,
                       const char* command, const char* word, size_t lineSize) {
    File file(path, "w");
    if (!file) {
        logFopenFailure(LINUX_SOURCE, __LINE__, path);
        return false;
    }
    writeHeading(file.get());
    Pipe pipe(command);
    if (!pipe) {
        logPopenFailure(LINUX_SOURCE, __LINE__, word);
        return false;
    }
    pipe.noteOutputFile(path);
    readCommandLines(pipe.get(), lineSize, [&](const char* line) { fputs(line, file.get()); });
    return true;
}
