// The run's time limits: set by the administrator, never hard-coded, so that a slow but healthy
// server can be given more time and a test can be given less.
#include "frame/limits.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "frame/app.h"
#include "frame/logging.h"
#include "frame/work.h"
#include "json/jsonparser.h"

namespace {

void readNames(JsonDocument& config, const char* list, std::vector<std::string>& names) {
    char path[128];
    snprintf(path, sizeof path, "obfuscation->%s", list);
    size_t count = config.getArraySize(path);
    for (size_t i = 0; i < count; ++i) {
        char item[160];
        snprintf(item, sizeof item, "%s[%zu]", path, i);
        if (config.getType(item) != JSON_STRING) continue;
        std::string name = config.getValue<char*>(item);
        if (!name.empty()) names.push_back(name);
    }
}

void readLimit(JsonDocument& config, const char* path, int& limit) {
    if (config.getType(path) != JSON_INTEGER) return;
    int value = config.getValue<int>(path);
    if (value > 0) limit = value;
}

}  // namespace

void loadLimits(bool warn) {
    // What the command line set stays: it wins over the file.
    RunLimits given = work::limits;
    work::limits = RunLimits();
    if (work::options & OPT_SINCE) work::limits.since = given.since;
    if (work::options & OPT_MAX_LOG_SIZE) work::limits.maxLogBytes = given.maxLogBytes;
    work::maskSecrets = true;
    work::obfuscation = ObfuscationConfig();
    struct stat info;
    JsonDocument config;
    char configPath[PATH_SIZE];
    programFile(CONFIG_FILE_NAME, configPath, sizeof configPath);
    if (stat(configPath, &info) != 0 || config.loadDocument(configPath) != 0) {
        if (warn) {
            logError(__FILE__, __LINE__, STATUS_WARNING,
                     "failed to load the gatr_config file: default time limits are used");
        }
        return;
    }
    readLimit(config, "limits->command_seconds", work::limits.commandSeconds);
    readLimit(config, "limits->archive_seconds", work::limits.archiveSeconds);
    readLimit(config, "limits->transfer_stall_seconds", work::limits.transferStallSeconds);
    // The command line wins over the file.
    char text[64] = {};
    long long cutoff = 0;
    if (!(work::options & OPT_SINCE) && config.getType("limits->since") == JSON_STRING &&
        parseSince(config.getValue<char*>("limits->since", text, sizeof text), time(nullptr),
                   cutoff)) {
        work::limits.since = cutoff;
    }
    int mebibytes = config.getValue<int>("limits->max_log_size_mib");
    if (!(work::options & OPT_MAX_LOG_SIZE) && mebibytes > 0)
        work::limits.maxLogBytes = static_cast<unsigned long long>(mebibytes) << 20;
    if (config.getType("limits->low_priority") == JSON_BOOLEAN)
        work::limits.lowPriority = config.getValue<bool>("limits->low_priority");
    // Masking is off only when the file says so in as many words.
    work::maskSecrets = config.getType("mask_secrets") != JSON_BOOLEAN ||
                        config.getValue<bool>("mask_secrets");
    // Obfuscation is on only when asked for, here or with --obfuscate.
    if (config.getType("obfuscate") == JSON_BOOLEAN && config.getValue<bool>("obfuscate"))
        work::options |= OPT_OBFUSCATE;
    readNames(config, "domains", work::obfuscation.domains);
    readNames(config, "users", work::obfuscation.users);
    readNames(config, "keywords", work::obfuscation.keywords);
}

bool parseSince(const char* text, long long now, long long& cutoff) {
    char* end = nullptr;
    if (text[0] >= '1' && text[0] <= '9') {
        errno = 0;
        long long days = strtoll(text, &end, 10);
        if (*end != '\0' || errno != 0 || days > 100000) return false;
        cutoff = now - days * 86400;
        return true;
    }
    struct tm day = {};
    end = strptime(text, "%Y-%m-%d", &day);
    if (end == nullptr || *end != '\0' || strlen(text) != 10) return false;
    day.tm_isdst = -1;
    time_t midnight = mktime(&day);
    if (midnight == static_cast<time_t>(-1) || midnight > now) return false;
    cutoff = midnight;
    return true;
}

bool parseMebibytes(const char* text, unsigned long long& bytes) {
    if (text[0] < '0' || text[0] > '9') return false;
    char* end = nullptr;
    errno = 0;
    unsigned long long mebibytes = strtoull(text, &end, 10);
    if (*end != '\0' || errno != 0 || mebibytes > (1ULL << 40)) return false;
    bytes = mebibytes << 20;
    return true;
}
