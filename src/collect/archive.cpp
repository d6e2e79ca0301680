// Packing the gathered files into the run's archive. gatr writes the tar stream itself: no
// shell, no command line to outgrow, no masked copy on disk, and every member masked on its way.
#include "collect/archive.h"

#include <unistd.h>

#include <cstring>
#include <list>
#include <map>
#include <sys/stat.h>

#include "collect/archive_estimate.h"
#include "collect/archive_members.h"
#include "collect/archive_publish.h"
#include "collect/member_pack.h"
#include "collect/member_paths.h"
#include "collect/obfuscation_setup.h"
#include "collect/tar_stream.h"
#include "common/child_process.h"
#include "common/string_helpers.h"
#include "frame/console.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/run_record.h"
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

/// Whether the path is a log the --since window and the --max-log-size cap apply to: the
/// system's message log and its rotations, and what the manifests list as logs.
bool isLogMember(const std::string& path) {
    if (path.compare(0, strlen(SYSTEM_LOG), SYSTEM_LOG) == 0) return true;
    for (std::string at = path;;) {
        if (work::logPaths.count(at) != 0) return true;
        size_t slash = at.rfind('/');
        if (slash == 0 || slash == std::string::npos) return false;
        at.erase(slash);
    }
}

PackRules rulesFor(const std::string& path) {
    PackRules rules;
    rules.isLog = isLogMember(path);
    rules.since = work::limits.since;
    rules.maxLogBytes = work::limits.maxLogBytes;
    rules.obfuscation = obfuscationMap();
    return rules;
}

/// Text of gatr's own through the obfuscation filter, when obfuscation is on.
std::string obfuscatedText(const std::string& text) {
    privacy::ObfuscationMap* map = obfuscationMap();
    if (map == nullptr) return text;
    privacy::ObfuscationFilter filter(*map);
    std::string out;
    filter.feed(text.data(), text.size(), out);
    filter.finish(out);
    return out;
}

void recordPacked(const std::string& path, const PackedMember& member) {
    MemberRecord record;
    record.path = path;
    if (member.outcome != PackedMember::PACKED) {
        record.leftOut = !member.skipped.empty() ? member.skipped : member.warning;
    } else {
        record.bytesRead = member.bytesRead;
        record.bytesPacked = member.bytes;
        record.cut = member.cutFrom > 0;
        record.cutFrom = member.cutFrom;
        record.masked = member.masked;
        record.obfuscated = member.obfuscated;
    }
    recordMember(record);
}

void logMember(const std::string& path, const PackedMember& member) {
    if (!member.skipped.empty()) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s: not gathered: %s", path.c_str(),
                 member.skipped.c_str());
    }
    if (member.cutFrom > 0) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION,
                 "%s: packed as its last %llu of %llu bytes (--max-log-size)", path.c_str(),
                 member.bytes, member.cutFrom);
    }
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
        PackedMember member = packMember(tar, *it, spillFolder, counted, rulesFor(*it));
        logMember(*it, member);
        recordPacked(*it, member);
        whole = member.outcome != PackedMember::ARCHIVE_LOST;
    }
    PackedMember last;
    if (whole) {
        disableErrorLogging(true);
        last = packMember(tar, errorLog, spillFolder, counted, rulesFor(errorLog));
        recordPacked(errorLog, last);
        whole = last.outcome != PackedMember::ARCHIVE_LOST;
    }
    // The run record comes last of all, so that it covers every member before it.
    std::string record = renderRunRecord();
    if (whole) {
        char recordPath[PATH_SIZE];
        whole = packText(tar, runRecordPath(recordPath, sizeof recordPath), obfuscatedText(record));
    }
    keepRunRecord(record);
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

/// The product a member belongs to: the one whose manifest added it or a folder above it, gatr
/// for the run's own files, else the machine.
std::string productOf(const std::string& path) {
    char logs[PATH_SIZE];
    snprintf(logs, sizeof logs, "%s/logs/", work::outputFolder);
    for (std::string at = path;;) {
        auto found = work::entryProducts.find(at);
        if (found != work::entryProducts.end() && !found->second.empty()) return found->second;
        size_t slash = at.rfind('/');
        if (slash == 0 || slash == std::string::npos) break;
        at.erase(slash);
    }
    return path.compare(0, strlen(logs), logs) == 0 ? PROGRAM_NAME : "system";
}

struct Estimate {
    unsigned long long toPack = 0;
    unsigned long long packed = 0;
};

/// What each product would pack, and the archive it would make, under the run's rules; the run
/// record, packed last, counts as gatr's.
std::map<std::string, Estimate> estimateMembers(const MemberList& members) {
    std::map<std::string, Estimate> products;
    std::list<MemberRecord> records;
    for (size_t i = 0; i < members.paths.size(); ++i) {
        const std::string& path = members.paths[i];
        unsigned long long size = members.sizes[i];
        unsigned long long offset = 0;
        PackRules rules = rulesFor(path);
        records.emplace_back();
        records.back().path = path;
        struct stat info;
        if (rules.isLog && rules.since > 0 && stat(path.c_str(), &info) == 0 &&
            info.st_mtime < rules.since) {
            records.back().leftOut = "last changed before the --since window";
            continue;
        }
        if (rules.isLog && rules.maxLogBytes > 0 && size > rules.maxLogBytes) {
            offset = size - rules.maxLogBytes;
            size = rules.maxLogBytes;
            records.back().cut = true;
            records.back().cutFrom = members.sizes[i];
        }
        records.back().bytesRead = records.back().bytesPacked = size;
        Estimate& estimate = products[productOf(path)];
        estimate.toPack += size;
        estimate.packed += estimatePackedSize(path, size, offset);
    }
    std::string record = renderRunRecord(records);
    products[PROGRAM_NAME].toPack += record.size();
    products[PROGRAM_NAME].packed += estimatePackedText(record);
    return products;
}

std::string grouped(unsigned long long value) {
    char text[48];
    snprintf(text, sizeof text, "%llu", value);
    format_number(text, sizeof text);
    return text;
}

/// Prints what the archive would hold, per product and in all, and the room for it.
void printEstimate(const MemberList& members) {
    std::map<std::string, Estimate> products = estimateMembers(members);
    Estimate total;
    printf("%s: %s\n", PROGRAM_NAME, _("archive estimate - nothing is packed"));
    printf("  %-10s  %20s  %20s\n", "", _("bytes to pack"), _("archive bytes"));
    for (const auto& product : products) {
        printf("  %-10s  %20s  %20s\n", product.first.c_str(), grouped(product.second.toPack).c_str(),
               grouped(product.second.packed).c_str());
        total.toPack += product.second.toPack;
        total.packed += product.second.packed;
    }
    printf("  %-10s  %20s  %20s\n", _("total"), grouped(total.toPack).c_str(),
           grouped(total.packed).c_str());
    printf("  %s %s: %s\n", _("free space in"), work::outputFolder,
           grouped(freeSpaceIn(work::outputFolder)).c_str());
    logError(__FILE__, __LINE__, STATUS_INFORMATION,
             "archive estimate: %llu bytes to pack, about %llu bytes of archive", total.toPack,
             total.packed);
}

/// Whether the output folder has room for the archive the members are expected to make; says
/// so on standard error and in the error log when it has not.
bool hasRoomFor(const MemberList& members) {
    unsigned long long expected = 0;
    for (const auto& product : estimateMembers(members)) expected += product.second.packed;
    unsigned long long free = freeSpaceIn(work::outputFolder);
    if (free >= expected) return true;
    logError(__FILE__, __LINE__, STATUS_ERROR,
             _("not enough free space in %s for the archive: about %s bytes needed, %s free"),
             work::outputFolder, grouped(expected).c_str(), grouped(free).c_str());
    fprintf(stderr, "%s: ", PROGRAM_NAME);
    fprintf(stderr, _("not enough free space in %s for the archive: about %s bytes needed, %s free"),
            work::outputFolder, grouped(expected).c_str(), grouped(free).c_str());
    fprintf(stderr, "\n");
    return false;
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
    char name[PATH_SIZE];
    snprintf(name, sizeof name, "%s_%s_%s.tar.gz", PROGRAM_NAME, work::nodename, stamp);
    // The archive's own name carries the node name: replaced too when obfuscation is on.
    privacy::ObfuscationMap* map = obfuscationMap();
    std::string shown = map != nullptr ? privacy::obfuscateName(*map, name) : std::string(name);
    snprintf(archivePath, size, "%s/%s", work::outputFolder, shown.c_str());
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
        keepRunRecord(renderRunRecord());
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

    if (work::options & OPT_ESTIMATE) {
        printEstimate(listMembers("", runFiles, normalisePath(errorLog)));
        work::archiveList.clear();
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
        keepRunRecord(renderRunRecord());
        return ArchiveResult::SKIPPED;
    }
    bool made = chooseFreeArchivePath(finalPath, sizeof finalPath);
    if (made) {
        snprintf(temporary, sizeof temporary, "%s.tmp", finalPath);
        MemberList members = listMembers(temporary, runFiles, normalisePath(errorLog));
        made = hasRoomFor(members) && pack(temporary, members, normalisePath(errorLog)) &&
               publishArchive(temporary, finalPath) == 0;
    }
    work::archiveList.clear();
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "archive creation completed");
    if (!made) return ArchiveResult::FAILED;
    snprintf(archivePath, PATH_SIZE, "%s", finalPath);
    work::settings.setValue<const char*>("last_archive_file", JSON_STRING, archivePath);
    return ArchiveResult::MADE;
}
