// Packing the gathered files into the run's archive with the system's tar.
#include "collect/archive.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "collect/archive_members.h"
#include "collect/archive_publish.h"
#include "collect/masked_copies.h"
#include "collect/tar_messages.h"
#include "common/child_process.h"
#include "common/search_path.h"
#include "common/shell_escape.h"
#include "common/string_helpers.h"
#include "frame/i18n.h"
#include "frame/folders.h"
#include "frame/logging.h"
#include "frame/report.h"
#include "frame/trusted_paths.h"
#include "frame/work.h"

namespace {

// Room for the two paths and the renames of masked configuration copies.
constexpr size_t COMMAND_SIZE = 131072;
constexpr const char* TAR = "tar";

// Support looks for these first when a product fails to install or its console misbehaves.
const char* const FRONT_NAMES[] = {"brwinst.log", "mntinst.log", "orb_gui.log",
                                   "orb_mount_gui.log", "orb_virtualboot_gui.log"};

/// Whether tar's wait status lets the archive stand: exit 0, or 1 (a file changed while it
/// was read, which support would rather have than nothing).
bool tarKeptArchive(int status) {
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) <= 1;
}

void logTarStatus(int status) {
    if (status == -1) {
        logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: %s\n"), TAR,
                 _("wait4 returned an error, or some other error is detected"));
        return;
    }
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : status;
    if (code == 0) return;
    if (code == 1 && WIFEXITED(status)) {
        logError(__FILE__, __LINE__, STATUS_WARNING,
                 _("%s returned a non-fatal error: exit code is %d"), TAR, 1);
    } else if (code == 2 && WIFEXITED(status)) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("%s returned a fatal error: exit code is %d"), TAR, 2);
    } else {
        logError(__FILE__, __LINE__, STATUS_ERROR, _("%s returned an error: exit code is %d"), TAR,
                 code);
    }
}

void logCommandForDebugging(const char* command, const char* listPath) {
    if ((work::options & OPT_DEBUG_ARCHIVE) == 0) return;
    logError(__FILE__, __LINE__, STATUS_DEBUG, "%s", command);
    logError(__FILE__, __LINE__, STATUS_DEBUG, "archive member list kept in %s", listPath);
}

/// Runs tar with the error log shut, so that the log it packs is complete and unchanged while
/// read; true when the archive at temporary may be published. A failed one is removed before
/// the log is open again, as its space may be what the log needs.
bool runTar(const char* command, const char* temporary) {
    TarMessages messages;
    disableErrorLogging(true);
    Pipe pipe(command, work::limits.archiveSeconds);
    if (!pipe) {
        int failure = errno;
        unlink(temporary);
        enableErrorLogging(true, 0, nullptr);
        logError(__FILE__, __LINE__, STATUS_ERROR, _("popen to %s failed: %s\n"), TAR,
                 strerror(failure));
        return false;
    }
    char line[1024];
    while (fgets(line, sizeof line, pipe.get()) != nullptr) messages.add(line);
    int status = pipe.closeSilently();
    bool kept = !pipe.timedOut() && tarKeptArchive(status);
    if (!kept) unlink(temporary);
    enableErrorLogging(true, 0, nullptr);
    messages.log();
    pipe.reportTimeLimit();
    if (!pipe.timedOut()) logTarStatus(status);
    return kept;
}

/// Makes the archive's temporary file, fresh and gatr's own: a name that is already there,
/// even as a link, is refused rather than written through. False (logged) when it cannot.
bool createTemporary(const char* temporary) {
    FILE* file = fopen(temporary, "wxe");
    if (file == nullptr) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fopen on %s failed: %s", temporary,
                 strerror(errno));
        return false;
    }
    fclose(file);
    return true;
}

/// Packs the ordered list into temporary with tar; true when it may be published.
bool pack(const std::list<std::string>& entries, const char* temporary, const char* listPath,
          const std::vector<std::string>& transforms) {
    std::unique_ptr<char[]> command(new char[COMMAND_SIZE]);
    if (!buildArchiveCommand(temporary, listPath, transforms, command.get(), COMMAND_SIZE)) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "archive command for %s does not fit",
                 temporary);
        return false;
    }
    if (!createTemporary(temporary)) return false;
    if (writeMemberList(listPath, entries) != 0) {
        unlink(temporary);
        return false;
    }
    bool kept = runTar(command.get(), temporary);
    logCommandForDebugging(command.get(), listPath);
    if ((work::options & OPT_DEBUG_ARCHIVE) == 0) unlink(listPath);
    return kept;
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

bool buildArchiveCommand(const char* temporary, const char* listPath,
                         const std::vector<std::string>& transforms, char* command, size_t size) {
    char archive[2 * PATH_SIZE + 64];
    char list[2 * PATH_SIZE + 64];
    escapeForDoubleQuotes(temporary, archive, sizeof archive);
    escapeForDoubleQuotes(listPath, list, sizeof list);
    // --verbatim-files-from before -T: a listed name that begins with '-' stays a file name.
    const char* compressor = isOnSearchPath("pigz") ? "--use-compress-program=pigz" : "-z";
    int written = snprintf(command, size,
                           "tar -c -P %s -f \"%s\" --ignore-failed-read --null "
                           "--verbatim-files-from -T \"%s\" 2>&1",
                           compressor, archive, list);
    if (written <= 0 || static_cast<size_t>(written) >= size) return false;
    // Masked copies are packed under the names of the files they stand for.
    size_t used = static_cast<size_t>(written) - strlen(" 2>&1");
    for (const std::string& transform : transforms) {
        std::vector<char> escaped(2 * transform.size() + 1);
        escapeForDoubleQuotes(transform.c_str(), escaped.data(), escaped.size());
        int added = snprintf(command + used, size - used, " --transform=\"%s\"", escaped.data());
        if (added <= 0 || used + static_cast<size_t>(added) + strlen(" 2>&1") >= size) return false;
        used += static_cast<size_t>(added);
    }
    snprintf(command + used, size - used, " 2>&1");
    return true;
}

ArchiveResult createArchive(bool skip, char* archivePath) {
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation commenced");
    if (skip) {
        work::archiveList.clear();
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s",
                 _("--no-archive option specified: no archive file will be generated"));
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
        return ArchiveResult::SKIPPED;
    }

    char finalPath[PATH_SIZE] = {};
    char temporary[PATH_SIZE + 8];
    char listPath[PATH_SIZE];
    buildArchivePath(finalPath, sizeof finalPath, time(nullptr));
    snprintf(listPath, sizeof listPath, "%s/logs/%s_archive_members.list", work::outputFolder,
             PROGRAM_NAME);
    char childErrors[PATH_SIZE];
    snprintf(childErrors, sizeof childErrors, "%s/logs/%s", work::outputFolder,
             CHILD_STDERR_LOG_NAME);
    maskCommandOutputFile(childErrors);
    addRunFiles(work::archiveList);
    dropUntrustedPaths(work::archiveList);
    orderArchiveList(work::archiveList);
    char maskedFolder[PATH_SIZE];
    snprintf(maskedFolder, sizeof maskedFolder, "%s/logs/.masked", work::outputFolder);
    std::vector<std::string> transforms;
    maskConfigurationFiles(work::archiveList, maskedFolder, transforms);

    bool made = chooseFreeArchivePath(finalPath, sizeof finalPath);
    if (made) {
        snprintf(temporary, sizeof temporary, "%s.tmp", finalPath);
        made = pack(work::archiveList, temporary, listPath, transforms) &&
               publishArchive(temporary, finalPath) == 0;
    }
    if (!transforms.empty()) removeDirectory(maskedFolder, true);
    work::archiveList.clear();
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
    if (!made) return ArchiveResult::FAILED;
    snprintf(archivePath, PATH_SIZE, "%s", finalPath);
    work::settings.setValue<const char*>("last_archive_file", JSON_STRING, archivePath);
    return ArchiveResult::MADE;
}
