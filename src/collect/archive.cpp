// Packing the gathered files into the run's archive. gatr writes the tar stream itself: no
// shell, no command line to outgrow, no masked copy on disk, and every member masked on its way.
#include "collect/archive.h"

#include <unistd.h>

#include <cstring>

#include "collect/archive_members.h"
#include "collect/archive_publish.h"
#include "collect/member_pack.h"
#include "collect/member_paths.h"
#include "collect/tar_stream.h"
#include "common/child_process.h"
#include "common/string_helpers.h"
#include "frame/console.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/trusted_paths.h"
#include "frame/work.h"

namespace {

// Support looks for these first when a product fails to install or its console misbehaves.
const char* const FRONT_NAMES[] = {"brwinst.log", "mntinst.log", "orb_gui.log",
                                   "orb_mount_gui.log", "orb_virtualboot_gui.log"};
// The system's message log goes into every archive, whatever the sections found.
constexpr char SYSTEM_LOG[] = "/var/log/messages";
// The bar stands at 88 when packing starts; the last point before 100 is the packing's.
constexpr int PACKING_FROM = 88;
constexpr int PACKING_TO = 99;

/// Moves the bar with the bytes read over the bytes to read, redrawing only on a new percent.
class PackingProgress {
public:
    explicit PackingProgress(unsigned long long total) : total(total) {}
    void add(unsigned long long bytes) {
        done += bytes;
        if (total == 0) return;
        unsigned long long part = (done < total ? done : total) * (100 - PACKING_FROM) / total;
        int percent = PACKING_FROM + static_cast<int>(part);
        if (percent > PACKING_TO) percent = PACKING_TO;
        if (percent == shown) return;
        shown = percent;
        setProgressBar(percent);
    }

private:
    unsigned long long total;
    unsigned long long done = 0;
    int shown = PACKING_FROM;
};

void logMember(const std::string& path, const PackedMember& member) {
    if (!member.warning.empty()) {
        bool lost = member.outcome == PackedMember::ARCHIVE_LOST;
        logError(__FILE__, __LINE__, lost ? STATUS_ERROR : STATUS_WARNING,
                 member.outcome == PackedMember::LEFT_OUT ? "%s: not gathered: %s" : "%s: %s",
                 path.c_str(), member.warning.c_str());
    }
    if (member.outcome != PackedMember::PACKED) return;
    unsigned long long masked = member.masked.total();
    if (masked > 0) {
        std::string rules;
        for (int rule = 0; rule < privacy::MASK_RULE_COUNT; ++rule) {
            if (member.masked.byRule[rule] == 0) continue;
            rules += (rules.empty() ? "" : ", ") + std::string(privacy::maskRuleName(rule)) + " " +
                     std::to_string(member.masked.byRule[rule]);
        }
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s: secret values masked: %llu (%s)",
                 path.c_str(), masked, rules.c_str());
    }
    if (work::options & OPT_DEBUG_ARCHIVE) {
        logError(__FILE__, __LINE__, STATUS_DEBUG, "packed %s: %llu bytes, %llu values masked",
                 path.c_str(), member.bytes, masked);
    }
}

/// Packs every member into temporary; true when the archive is complete on disk. The error log
/// is shut for its own member, which is packed last, and open again on return; a failed archive
/// is removed before the log opens again, as its space may be what the log needs.
bool pack(const char* temporary, const MemberList& members, const std::string& errorLog) {
    char spillFolder[PATH_SIZE];
    snprintf(spillFolder, sizeof spillFolder, "%s/logs", work::outputFolder);
    TarStream tar;
    long long deadline = monotonicMs() + static_cast<long long>(work::limits.archiveSeconds) * 1000;
    bool whole = tar.open(temporary, deadline);
    PackingProgress progress(members.bytes);
    auto counted = [&progress](unsigned long long bytes) { progress.add(bytes); };
    for (auto it = members.paths.begin(); whole && it != members.paths.end(); ++it) {
        if (*it == errorLog) continue;
        PackedMember member = packMember(tar, *it, spillFolder, counted);
        logMember(*it, member);
        whole = member.outcome != PackedMember::ARCHIVE_LOST;
    }
    PackedMember last;
    if (whole) {
        disableErrorLogging(true);
        last = packMember(tar, errorLog, spillFolder, counted);
        whole = last.outcome != PackedMember::ARCHIVE_LOST;
    }
    whole = tar.close() && whole;
    if (!whole && tar.madeFile()) unlink(temporary);
    if (work::errorsOs == nullptr) enableErrorLogging(true, 0, nullptr);
    if (!last.warning.empty() || last.outcome == PackedMember::PACKED) logMember(errorLog, last);
    if (work::options & OPT_DEBUG_ARCHIVE) {
        logError(__FILE__, __LINE__, STATUS_DEBUG, "archive %s compressed by %s", temporary,
                 tar.compressor().c_str());
    }
    if (tar.timedOut()) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 "archive not finished in %d seconds: time limit reached",
                 work::limits.archiveSeconds);
    } else if (!whole) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "archive %s not written: %s", temporary,
                 tar.failure().c_str());
    }
    return whole;
}

/// The members in packing order: the system log, the listed names, then the run's own files
/// with the error log last of all.
MemberList listMembers(const char* temporary, const std::list<std::string>& runFiles,
                       const std::string& errorLog) {
    MemberList members;
    // A listed folder that holds the output folder must not pack the run's files early, nor
    // the archive being written.
    members.seen.insert(temporary);
    members.seen.insert(runFiles.begin(), runFiles.end());
    addMemberTree(SYSTEM_LOG, members);
    for (const std::string& entry : work::archiveList) addMemberTree(entry, members);
    for (const std::string& file : runFiles) {
        if (file == errorLog) continue;
        members.seen.erase(file);
        addMemberTree(file, members);
    }
    members.seen.erase(errorLog);
    addMemberTree(errorLog, members);
    return members;
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
    buildArchivePath(finalPath, sizeof finalPath, time(nullptr));
    char childErrors[PATH_SIZE];
    snprintf(childErrors, sizeof childErrors, "%s/logs/%s", work::outputFolder,
             CHILD_STDERR_LOG_NAME);
    maskChildErrorsFile(childErrors);
    char errorLog[PATH_SIZE];
    snprintf(errorLog, sizeof errorLog, "%s/logs/%s_errors.log", work::outputFolder, PROGRAM_NAME);
    std::list<std::string> runFiles;
    addRunFiles(runFiles);
    for (std::string& entry : work::archiveList) entry = normalisePath(entry);
    dropUntrustedPaths(work::archiveList);
    for (std::string& file : runFiles) file = normalisePath(file);
    orderArchiveList(work::archiveList);
    orderArchiveList(runFiles);

    bool made = chooseFreeArchivePath(finalPath, sizeof finalPath);
    if (made) {
        snprintf(temporary, sizeof temporary, "%s.tmp", finalPath);
        MemberList members = listMembers(temporary, runFiles, normalisePath(errorLog));
        made = pack(temporary, members, normalisePath(errorLog)) &&
               publishArchive(temporary, finalPath) == 0;
    }
    work::archiveList.clear();
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
    if (!made) return ArchiveResult::FAILED;
    snprintf(archivePath, PATH_SIZE, "%s", finalPath);
    work::settings.setValue<const char*>("last_archive_file", JSON_STRING, archivePath);
    return ArchiveResult::MADE;
}
