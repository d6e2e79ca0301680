// Probes for a product's service process, executable, kernel module and package. Each writes
// its findings straight into the main log in the two-column layout of the product sections.
#include "inventory/probes.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

#include "common/string_helpers.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "common/child_process.h"
#include "frame/report.h"

namespace {

constexpr size_t LINE_SIZE = 1024;
constexpr size_t COMMAND_SIZE = 1024;

void logStatFailure(int error) {
    logError(__FILE__, __LINE__, STATUS_ERROR, "call to %s failed: %s\n", "stat()",
             strerror(error));
}

/// The modification time as UTC "YYYY-MM-DDTHH:MM:SSZ".
void formatModificationTime(const struct stat& info, char* buffer, size_t size) {
    struct tm utc = {};
    gmtime_r(&info.st_mtime, &utc);
    strftime(buffer, size, "%Y-%m-%dT%H:%M:%SZ", &utc);
}

/// The size as grouped digits. It goes through single precision first, as the report always
/// has: sizes above 16,777,216 bytes show rounded to what a float holds.
void formatSize(const struct stat& info, char* buffer, size_t size) {
    float bytes = static_cast<float>(info.st_size);
    snprintf(buffer, size, "%0.0f", static_cast<double>(bytes));
    format_number(buffer, size);
}

}  // namespace

int getPid(const char* name) {
    char command[COMMAND_SIZE];
    snprintf(command, sizeof command, "ps -ef | grep -e \"%s\" | grep -v \"grep\"", name);
    Pipe pipe(command);
    if (!pipe) {
        logPopenFailure(__FILE__, __LINE__, "ps");
        return -1;
    }
    // The first listing line that merely contains the name counts: a lenient test on purpose.
    int pid = 0;
    char line[LINE_SIZE] = {};
    if (fgets(line, sizeof line, pipe.get()) != nullptr) sscanf(line, "%*s %d %*s", &pid);
    return pid;
}

void getDaemon(const char* name) {
    int pid = getPid(name);
    if (pid != 0 && pid != -1) {
        writeLog("%-20s  %s %s, %s %d\n\n", _("Daemon:"), name, _("running"), _("process ID"),
                 pid);
    } else {
        writeLog("%-20s  %s %s\n\n", _("Daemon:"), name,
                 pid == -1 ? _("state unknown") : _("not running"));
    }
}

void getDaemonModule(const char* name, const char* path) {
    writeLog("%s %s\n", _("Daemon module:"), name);
    struct stat info;
    if (stat(path, &info) != 0) {
        logStatFailure(errno);
        writeRetrievalFailure();
        return;
    }
    char date[80] = {};
    formatModificationTime(info, date, sizeof date);
    char size[64] = {};
    formatSize(info, size, sizeof size);
    writeFact(_("filename:"), path);
    writeFact(_("date:"), date);
    writeLog("  %-18s  %s %s\n\n", _("size:"), size, _("bytes"));
}

void getKernelModule(const char* name) {
    writeLog("%s %s\n", _("Kernel module:"), name);
    char command[COMMAND_SIZE];
    snprintf(command, sizeof command, "modinfo %s 2>&1", name);
    Pipe modinfo(command);
    if (!modinfo) {
        logPopenFailure(__FILE__, __LINE__, "modinfo");
        writeRetrievalFailure();
        return;
    }
    std::string modulePath;
    bool failed = false;
    readCommandLines(modinfo.get(), LINE_SIZE, [&](const char* line) {
        if (failed) return;  // the rest of the output is read only to let modinfo finish
        const char* error = strstr(line, "ERROR:");
        if (error != nullptr) {
            // modinfo's complaint goes under "filename:", where the module's file would be;
            // the text keeps the line's own newline.
            const char* message = strlen(error) >= 7 ? error + 7 : "";
            writeFact(_("filename:"), message);
            failed = true;
            return;
        }
        char key[64] = {};
        char value[LINE_SIZE] = {};
        if (sscanf(line, "%63s %1023[^\r\n]", key, value) < 1) return;
        writeFact(key, value);
        if (strcmp(key, "filename:") == 0) modulePath = value;
    });
    modinfo.close();

    struct stat info;
    if (!modulePath.empty() && stat(modulePath.c_str(), &info) == 0) {
        char date[80] = {};
        formatModificationTime(info, date, sizeof date);
        char size[64] = {};
        formatSize(info, size, sizeof size);
        writeFact(_("date:"), date);
        writeLog("  %-18s  %s %s\n", _("size:"), size, _("bytes"));
    }

    snprintf(command, sizeof command, "lsmod | grep %s", name);
    Pipe lsmod(command);
    if (!lsmod) {
        logPopenFailure(__FILE__, __LINE__, "lsmod");
        writeLog("  %-18s  %s\n\n", _("status:"), _("state unknown"));
        return;
    }
    char line[LINE_SIZE] = {};
    bool loaded = fgets(line, sizeof line, lsmod.get()) != nullptr;
    writeLog("  %-18s  %s\n\n", _("status:"), loaded ? _("loaded") : _("not loaded"));
}

std::string getDaemonPackage(const char* name) {
    char command[COMMAND_SIZE];
    snprintf(command, sizeof command, "rpm -q %s", name);
    Pipe pipe(command);
    if (!pipe) {
        logPopenFailure(__FILE__, __LINE__, "rpm");
        return std::string();
    }
    // The last complete line wins; it keeps its newline, which ends the caller's log line.
    std::string result;
    readCommandLines(pipe.get(), LINE_SIZE, [&result](const char* line) { result = line; });
    writeLog("\n");
    return result;
}
