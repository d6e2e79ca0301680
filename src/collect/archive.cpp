// Packing the gathered files into the run's archive with the system's tar.
#include "collect/archive.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "common/shell_escape.h"
#include "common/string_helpers.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "common/child_process.h"
#include "frame/report.h"
#include "frame/work.h"

namespace {

constexpr size_t COMMAND_SIZE = 131072;
constexpr const char* TAR = "tar";
constexpr const char* DISCARD_OUTPUT = " 1>/dev/null 2>&1";

// Support looks for these first when a product fails to install or its console misbehaves.
const char* const FRONT_NAMES[] = {"brwinst.log", "mntinst.log", "orb_gui.log",
                                   "orb_mount_gui.log", "orb_virtualboot_gui.log"};

/// Appends ` "<escaped text>"` when it fits before reserve bytes from the end; false if not.
bool appendQuoted(char* command, size_t size, size_t& used, size_t reserve, const char* text) {
    std::vector<char> escaped(2 * strlen(text) + 1);
    escapeForDoubleQuotes(text, escaped.data(), escaped.size());
    size_t needed = strlen(escaped.data()) + 3;
    if (used + needed + reserve >= size) return false;
    used += static_cast<size_t>(snprintf(command + used, size - used, " \"%s\"", escaped.data()));
    return true;
}

void logTarStatus(int status) {
    switch (status) {
    case 0:
        return;
    case -1:
        logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: %s\n"), TAR,
                 _("wait4 returned an error, or some other error is detected"));
        return;
    // The raw wait status is compared as it stands: tar's own exit codes 1 and 2 arrive
    // shifted (256, 512) and are reported with the general message.
    case 1:
        logError(__FILE__, __LINE__, STATUS_WARNING,
                 _("%s returned a non-fatal error: exit code is %d"), TAR, 1);
        return;
    case 2:
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("%s returned a fatal error: exit code is %d"), TAR, 2);
        return;
    default:
        logError(__FILE__, __LINE__, STATUS_ERROR, _("%s returned an error: exit code is %d"), TAR,
                 status);
        return;
    }
}

void logCommandForDebugging(const char* command) {
    if (work::options & OPT_DEBUG_ARCHIVE) {
        logError(__FILE__, __LINE__, STATUS_DEBUG, "%s", command);
    }
}

}  // namespace

void buildArchivePath(char* archivePath, size_t size, time_t now) {
    str_tolower(work::nodename, strlen(work::nodename));
    char stamp[32] = {};
    struct tm utc = {};
    gmtime_r(&now, &utc);
    strftime(stamp, sizeof stamp, "%Y%m%dT%H%MZ", &utc);
    snprintf(archivePath, size, "%s/%s_%s_%s.tar.gz", work::outputFolder, PROGRAM_NAME,
             work::nodename, stamp);
}

void orderArchiveList(std::list<std::string>& entries) {
    entries.sort();
    entries.unique();
    for (const char* name : FRONT_NAMES) {
        for (auto it = entries.begin(); it != entries.end(); ++it) {
            if (it->find(name) != std::string::npos) {
                entries.splice(entries.begin(), entries, it);
                break;
            }
        }
    }
}

void buildArchiveCommand(const char* archivePath, const std::list<std::string>& entries,
                         char* command, size_t size) {
    if (size == 0) return;
    command[0] = '\0';
    size_t reserve = strlen(DISCARD_OUTPUT);
    int written = snprintf(command, size, "tar czPf");
    size_t used = written > 0 ? static_cast<size_t>(written) : 0;
    if (!appendQuoted(command, size, used, reserve, archivePath)) return;
    used += static_cast<size_t>(snprintf(command + used, size - used, " --ignore-failed-read"));
    // The system's message log goes into every archive, whatever the sections found.
    bool fits = appendQuoted(command, size, used, reserve, "/var/log/messages");
    for (auto it = entries.begin(); fits && it != entries.end(); ++it) {
        fits = appendQuoted(command, size, used, reserve, it->c_str());
    }
    snprintf(command + used, size - used, "%s", DISCARD_OUTPUT);
}

int createArchive(bool skip, char* archivePath) {
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation commenced");
    if (skip) {
        work::archiveList.clear();
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s",
                 _("--no-archive option specified: no archive file will be generated"));
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
        return false;
    }

    // The error log goes into the archive too: closed, it is complete up to this point.
    disableErrorLogging(true);
    buildArchivePath(archivePath, PATH_SIZE, time(nullptr));
    std::unique_ptr<char[]> command(new char[COMMAND_SIZE]);
    orderArchiveList(work::archiveList);
    buildArchiveCommand(archivePath, work::archiveList, command.get(), COMMAND_SIZE);
    work::archiveList.clear();

    Pipe pipe(command.get(), work::limits.archiveSeconds);
    if (!pipe) {
        int failure = errno;
        enableErrorLogging(true, 0, nullptr);
        logError(__FILE__, __LINE__, STATUS_ERROR, _("popen to %s failed: %s\n"), TAR,
                 strerror(failure));
        logCommandForDebugging(command.get());
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
        return false;
    }
    char line[1024];
    while (fgets(line, sizeof line, pipe.get()) != nullptr) {
        if (strcmp(line, "\n") == 0 || strcmp(line, "\r\n") == 0) continue;
        enableErrorLogging(true, 0, nullptr);
        logError(__FILE__, __LINE__, STATUS_WARNING, "%s", line);
    }
    int status = pipe.close();
    enableErrorLogging(true, 0, nullptr);
    logTarStatus(status);
    logCommandForDebugging(command.get());
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
    work::settings.setValue<const char*>("last_archive_file", JSON_STRING, archivePath);
    return status == 0 || status == 1;
}
