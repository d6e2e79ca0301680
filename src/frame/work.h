// Process-wide state of gatr: plain globals in the namespace work, zero-initialised at load.
#pragma once

#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "json/jsonparser.h"

// Option bits of work::options; no other bit is ever set.
constexpr uint64_t OPT_SILENT = 0x1;
constexpr uint64_t OPT_NO_ARCHIVE = 0x2;
constexpr uint64_t OPT_EXCLUDE_VSS = 0x4;
constexpr uint64_t OPT_UPLOAD_FTP = 0x10;
constexpr uint64_t OPT_VERBOSE = 0x20;
constexpr uint64_t OPT_NO_CHECK = 0x40;
constexpr uint64_t OPT_FORCE_VSS = 0x2000;
constexpr uint64_t OPT_ORB_THREADS = 0x10000;
constexpr uint64_t OPT_HASH_SHA256 = 0x80000;
constexpr uint64_t OPT_HASH_SHA1 = 0x100000;
constexpr uint64_t OPT_HASH_MD5 = 0x200000;
constexpr uint64_t OPT_DEBUG_ARCHIVE = 0x400000;
constexpr uint64_t OPT_DEBUG_ORB = 0x800000;
constexpr uint64_t OPT_DEBUG_RK = 0x1000000;
constexpr uint64_t OPT_DRY_RUN = 0x20000000;
constexpr uint64_t OPT_NORMAL_PRIORITY = 0x40000000;  // --normal-priority
constexpr uint64_t OPT_ESTIMATE = 0x80000000;         // --estimate
constexpr uint64_t OPT_SINCE = 0x100000000;           // --since given: it wins over the file
constexpr uint64_t OPT_MAX_LOG_SIZE = 0x200000000;    // --max-log-size given
constexpr uint64_t OPT_OBFUSCATE = 0x400000000;        // --obfuscate

// Bits of work::detected, OR-ed in by the product sections.
constexpr uint64_t DETECTED_ORB = 0x10;
constexpr uint64_t DETECTED_TALLYHUB = 0x20;
constexpr uint64_t DETECTED_WATCHPOST = 0x100;

constexpr const char* PROGRAM_NAME = "gatr";
constexpr const char* PROGRAM_TITLE = "Support Data Gatherer";
constexpr const char* PROGRAM_VERSION = "2.3.3";
constexpr const char* PROGRAM_BUILD_TIME = "2024-07-04T11:25:28Z";

constexpr size_t PATH_SIZE = 4096;

// Time limits of a run, from the "limits" object of the configuration file.
struct RunLimits {
    int commandSeconds = 300;        // any program gatr runs, but tar
    int archiveSeconds = 3600;       // tar
    int transferStallSeconds = 60;   // a transfer in which no byte moves
    bool lowPriority = true;         // nice 10 and best-effort I/O priority 7 for the whole run
    long long since = 0;             // logs last changed before this time are left out; 0: all
    unsigned long long maxLogBytes = 0;  // a larger log is packed as its last part; 0: whole
};

// "obfuscation" of the configuration file: names to replace beyond the machine's own.
struct ObfuscationConfig {
    std::vector<std::string> domains;
    std::vector<std::string> users;
    std::vector<std::string> keywords;
};

namespace work {
extern uint64_t options;
extern uint64_t detected;
extern char thousandsSeparator;
extern char outputFolder[PATH_SIZE];
/// The absolute folder of the executable, where etc/, var/ and locale/ are found.
extern char programFolder[PATH_SIZE];
extern char settingsFileName[PATH_SIZE];
extern char nodename[256];
extern FILE* logOs;
extern FILE* errorsOs;
extern std::list<std::string> archiveList;
/// Whether the run took nice 10 and best-effort I/O priority 7 at start.
extern bool lowPriority;
/// Entries of archiveList that manifests list as logs: the log window and size cap apply to
/// them and to what lies below them.
extern std::set<std::string> logPaths;
/// The product short name that added an entry of archiveList; entries not named are the
/// machine's own.
extern std::map<std::string, std::string> entryProducts;
extern std::list<std::string> deleteFolderList;
extern JsonDocument settings;
extern const char* hashPathname;
extern const char* ftpRegion;
extern const char* ftpCaseNumber;
extern const char* ftpArchiveFileName;
extern bool hasOrbDebugOn;
extern RunLimits limits;
extern bool maskSecrets;  // "mask_secrets" of the configuration file; on unless support asks
extern ObfuscationConfig obfuscation;
}  // namespace work
