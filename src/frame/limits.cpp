// The run's time limits: set by the administrator, never hard-coded, so that a slow but healthy
// server can be given more time and a test can be given less.
#include "frame/limits.h"

#include <sys/stat.h>

#include <cstdio>

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
    work::limits = RunLimits();
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
