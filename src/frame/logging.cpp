// The error log and the main log.
#include "frame/logging.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <ctime>
#include <unistd.h>

#include "frame/i18n.h"
#include "frame/masking.h"
#include "frame/run_record.h"
#include "frame/work.h"

const char* const EQUALS_RULE =
    "================================================================================";
const char* const DASH_RULE =
    "--------------------------------------------------------------------------------";

namespace {

// A message shown on the console before the error log exists is cut to this size: room for two
// paths and the reason.
constexpr size_t ERROR_LINE_SIZE = 2 * PATH_SIZE + 256;

const char* statusWord(status_t status) {
    switch (status) {
    case STATUS_INFORMATION: return _("information");
    case STATUS_WARNING: return _("warning");
    case STATUS_ERROR: return _("ERROR");
    case STATUS_FATAL: return _("FATAL");
    case STATUS_DEBUG: return _("debug");
    }
    return _("unknown");
}

void buildLogPath(char* path, const char* format) {
    snprintf(path, PATH_SIZE, format, work::outputFolder, PROGRAM_NAME);
}

}  // namespace

char* getVariableMsg(const char* format, va_list args) {
    char* message = nullptr;
    if (vasprintf(&message, format, args) < 0) return nullptr;
    return message;
}

void logError(const char* file, unsigned line, status_t status, const char* format, ...) {
    if (status == STATUS_WARNING || status == STATUS_ERROR || status == STATUS_FATAL)
        recordLogLine(status != STATUS_WARNING);
    if (work::errorsOs == nullptr) {
        // Before the error log exists the console is the only place the message can go; it
        // names the same path or reason the log line would, or it says nothing useful.
        char message[ERROR_LINE_SIZE] = {};
        va_list args;
        va_start(args, format);
        vsnprintf(message, sizeof message, format, args);
        va_end(args);
        fprintf(stderr, "%s: %s\n", PROGRAM_NAME, message);
        return;
    }
    char stamp[80] = {};
    time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);

    const char* slash = strrchr(file, '/');
    const char* source = slash != nullptr ? slash + 1 : file;

    char word[32] = {};
    snprintf(word, sizeof word, "%s", statusWord(status));

    va_list args;
    va_start(args, format);
    char* message = getVariableMsg(format, args);
    va_end(args);
    if (message == nullptr) return;

    std::string text(message);
    maskLine(text);
    fprintf(work::errorsOs, "%19s %-16.16s [%5.u] %-20.20s %s\n", stamp, source, line, word,
            text.c_str());
    fflush(work::errorsOs);
    free(message);
}

void enableErrorLogging(bool resume, int argc, char** argv) {
    char path[PATH_SIZE] = {};
    buildLogPath(path, "%s/logs/%s_errors.log");
    if (work::errorsOs != nullptr) return;

    work::errorsOs = fopen(path, resume ? "ae" : "we");
    if (work::errorsOs == nullptr) {
        fprintf(stderr, "%s: %s %s: %s\n", PROGRAM_NAME, _("unable to open file"), path,
                strerror(errno));
        exit(1);
    }
    if (resume) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", _("logging resumed"));
        return;
    }
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", _("logging enabled"));
    if (work::options & OPT_DEBUG_ARCHIVE) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION,
                 "--debug-archive option specified: debug mode is enabled for archive creation");
        char cwd[PATH_SIZE] = {};
        if (getcwd(cwd, sizeof cwd) == nullptr) cwd[0] = '\0';
        logError(__FILE__, __LINE__, STATUS_DEBUG, "current working directory: %s", cwd);
    }
    if (work::options & OPT_DEBUG_RK) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION,
                 "--debug-rk option specified: debug mode is enabled for Rollkeeper");
    }
    if (work::options & OPT_DEBUG_ORB) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION,
                 "--debug-orb option specified: debug mode is enabled for orb");
    }

    char record[8192] = {};
    size_t used = static_cast<size_t>(snprintf(record, sizeof record, "%s: ", _("command line")));
    for (int i = 1; i < argc && used < sizeof record; ++i) {
        int n = snprintf(record + used, sizeof record - used, "%s ", argv[i]);
        if (n < 0) break;
        used += static_cast<size_t>(n);
    }
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", record);
    work::archiveList.push_back(path);
}

void disableErrorLogging(bool suspend) {
    if (work::errorsOs == nullptr) return;
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s",
             suspend ? _("logging suspended") : _("logging disabled"));
    fflush(work::errorsOs);
    fclose(work::errorsOs);
    work::errorsOs = nullptr;
}

namespace {

/// What this run was asked to do, so that support reads the rest of the log in its light.
void writeRunSettings() {
    fprintf(work::logOs, "\n");
    fprintf(work::logOs, "%-20s  %s\n", _("Priority:"),
            work::lowPriority ? _("low (nice 10, best-effort I/O priority 7)") : _("normal"));
    fprintf(work::logOs, "%-20s  %s\n", _("Secret masking:"), work::maskSecrets ? _("on") : _("off"));
    fprintf(work::logOs, "%-20s  %s\n", _("Obfuscation:"),
            (work::options & OPT_OBFUSCATE) ? _("on") : _("off"));
    char value[64] = {};
    if (work::limits.since > 0) {
        time_t since = static_cast<time_t>(work::limits.since);
        struct tm utc = {};
        gmtime_r(&since, &utc);
        strftime(value, sizeof value, "%Y-%m-%dT%H:%M:%SZ", &utc);
    }
    fprintf(work::logOs, "%-20s  %s%s\n", _("Logs since:"), work::limits.since > 0 ? "" : _("any time"),
            value);
    if (work::limits.maxLogBytes > 0) {
        snprintf(value, sizeof value, "%llu MiB", work::limits.maxLogBytes >> 20);
    }
    fprintf(work::logOs, "%-20s  %s\n", _("Log size limit:"),
            work::limits.maxLogBytes > 0 ? value : _("none"));
}

}  // namespace

void enableLogging() {
    char path[PATH_SIZE] = {};
    buildLogPath(path, "%s/logs/%s.log");
    work::logOs = fopen(path, "we");
    if (work::logOs == nullptr) {
        logError(__FILE__, __LINE__, STATUS_FATAL, "%s %s: %s", _("unable to open file"), path,
                 strerror(errno));
        exit(1);
    }
    work::archiveList.push_back(path);
    fprintf(work::logOs, "%s\n", EQUALS_RULE);
    fprintf(work::logOs, "%s (%s) %s %s\n", PROGRAM_TITLE, PROGRAM_NAME, PROGRAM_VERSION,
            PROGRAM_BUILD_TIME);
    fprintf(work::logOs, "%s\n",
            _("This report describes this server and the Brimwell products installed on it."));
    fprintf(work::logOs, "%s\n",
            _("Send it to Brimwell Support together with the archive it is part of."));
    writeRunSettings();
    fprintf(work::logOs, "%s\n", EQUALS_RULE);
}

void disableLogging() {
    if (work::logOs == nullptr) return;
    char stamp[1024] = {};
    time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    strftime(stamp, sizeof stamp, "%A, %e %B %Y %I:%M:%S %p", &local);
    fprintf(work::logOs, "%s\n", DASH_RULE);
    fprintf(work::logOs, "%s %s\n", _("log generated on"), stamp);
    fprintf(work::logOs, "%s\n", DASH_RULE);
    fflush(work::logOs);
    fclose(work::logOs);
    work::logOs = nullptr;
}
