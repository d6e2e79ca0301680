// Running external programs through the shell: output copied to a file or collected as lines.
#include "collect/spawning.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/child_process.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/report.h"

namespace {

constexpr size_t SPAWN_LINE_SIZE = 2048;
constexpr size_t PROGRAM_NAME_SIZE = 4096;

/// Logs why a command failed from pclose's raw wait status; the number shown is the raw status
/// (an exit code of 1 shows as 256): support's notes on known failures quote that number.
void logSpawnStatus(const char* command, int status) {
    char program[PROGRAM_NAME_SIZE];
    const char* name = getSpawnedProgram(command, program, sizeof program);
    if (status == -1) {
        logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: %s\n"), name,
                 _("wait4 returned an error, or some other error is detected"));
    } else {
        logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: exit code is %d\n"),
                 name, status);
    }
}

void logSpawnPopenFailure(const char* command) {
    int error = errno;
    char program[PROGRAM_NAME_SIZE];
    const char* name = getSpawnedProgram(command, program, sizeof program);
    logError(__FILE__, __LINE__, STATUS_ERROR, "popen to %s failed: %s\n", name,
             strerror(error));
}

}  // namespace

int spawnProgram(const char* command, const char* path, const char* mode) {
    File output(path, mode);
    if (!output) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fopen on %s failed: %s\n", path,
                 strerror(errno));
        return -1;
    }
    Pipe pipe(command);
    if (!pipe) {
        logSpawnPopenFailure(command);
        return -1;
    }
    pipe.noteOutputFile(path);
    readCommandLines(pipe.get(), SPAWN_LINE_SIZE,
                     [&output](const char* line) { fputs(line, output.get()); });
    int status = pipe.close();
    int result = 0;
    if (status != 0) {
        // A command stopped at its time limit has its own line already.
        if (!pipe.timedOut()) logSpawnStatus(command, status);
        result = -1;
    }
    output.close();
    return result;
}

int spawnProgram(const char* command, std::list<std::string>& lines) {
    lines.clear();
    Pipe pipe(command);
    if (!pipe) {
        logSpawnPopenFailure(command);
        return -1;
    }
    readCommandLines(pipe.get(), SPAWN_LINE_SIZE, [&lines](const char* line) {
        if (strcmp(line, "\r\n") == 0) return;
        std::string text(line);
        // Both cuts look at the length as read: a line ending in "\r\n" loses both, and a
        // carriage return just before the last character cuts there even without a newline.
        size_t length = text.size();
        if (length >= 1 && text[length - 1] == '\n') text.resize(length - 1);
        if (length >= 2 && text[length - 2] == '\r') text.resize(length - 2);
        lines.push_back(text);
    });
    int status = pipe.close();
    if (status == 0) return 0;
    if (!pipe.timedOut()) logSpawnStatus(command, status);
    return -1;
}
