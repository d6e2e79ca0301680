// The SYSTEM section: the machine itself.
#include "inventory/linux_system.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "common/child_process.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/linux_blocks.h"
#include "inventory/linux_dmi.h"

namespace {

constexpr size_t RELEASE_SIZE = 256;

void blankLine() {
    fprintf(work::logOs, "\n");
}

void writeSystemFacts(const struct utsname& names) {
    work::settings.setValue<const char*>("system->operating_system", JSON_STRING,
                                         getOsRelease(names.sysname));
    work::settings.setValue<const char*>("system->version", JSON_STRING, names.version);
    work::settings.setValue<const char*>("system->kernel", JSON_STRING, names.release);
    work::settings.setValue<const char*>("system->platform", JSON_STRING, names.machine);
    work::settings.setValue<void*>("system->role", JSON_NULL, nullptr);
}

void writeMemory(const struct sysinfo& info) {
    char text[64];
    formatMemory(info.totalram, text, sizeof text);
    writeLabelled(_("Memory:"), text);
    blankLine();
}

void writeLocaleAndZone(time_t now) {
    char zone[128] = {};
    struct tm local = {};
    localtime_r(&now, &local);
    strftime(zone, sizeof zone, "%Z (UTC%z)", &local);
    const char* locale = setlocale(LC_ALL, nullptr);
    writeLabelled(_("Locale:"), locale != nullptr ? locale : "");
    writeLabelled(_("Time zone:"), zone);
    blankLine();
}

void writeUptimeAndBoot(const struct sysinfo& info, time_t now) {
    Uptime up = splitUptime(info.uptime);
    fprintf(work::logOs, "%-20s  %ld %s %ld %s %ld %s\n", _("System uptime:"), up.days,
            _("days"), up.hours, _("hours"), up.minutes, _("minutes"));
    char boot[160];
    formatBootTime(now, info.uptime, boot, sizeof boot);
    writeLabelled(_("Boot time:"), boot);
    blankLine();
}

}  // namespace

Uptime splitUptime(long seconds) {
    Uptime up = {0, 0, 0};
    if (seconds >= 3600) {
        up.hours = seconds / 3600;
        up.minutes = (seconds % 3600) > 59 ? (seconds % 3600) / 60 : 0;
        if (seconds > 86399) {
            up.days = seconds / 86400;
            up.hours = seconds / 3600 - 24 * up.days;
        }
    } else if (seconds > 59) {
        up.minutes = seconds / 60;
    }
    return up;
}

void formatMemory(unsigned long totalram, char* buffer, size_t size) {
    // sysinfo's mem_unit is 1 on every machine this runs on, so it is not applied.
    float mebibytes = static_cast<float>(totalram >> 20);
    if (mebibytes > 1024.0f) {
        snprintf(buffer, size, "%0.1f GB", mebibytes * 0.0009765625);
    } else {
        snprintf(buffer, size, "%0.0f MB", mebibytes);
    }
}

void formatBootTime(time_t now, long uptime, char* buffer, size_t size) {
    struct tm local = {};
    localtime_r(&now, &local);
    time_t boot = mktime(&local) - uptime;
    struct tm bootLocal = {};
    struct tm bootUtc = {};
    localtime_r(&boot, &bootLocal);
    gmtime_r(&boot, &bootUtc);
    char localText[64] = {};
    char utcText[64] = {};
    strftime(localText, sizeof localText, "%Y-%m-%dT%H:%M:%S%z", &bootLocal);
    strftime(utcText, sizeof utcText, "%Y-%m-%dT%H:%M:%SZ", &bootUtc);
    snprintf(buffer, size, "%s (%s)", localText, utcText);
}

void parseOsReleaseLine(const char* line, char* release) {
    const char* description = strstr(line, "DISTRIB_DESCRIPTION=");
    if (description != nullptr) {
        sscanf(description, "DISTRIB_DESCRIPTION=\"%255[^\"\r\n]", release);
    } else {
        sscanf(line, "%255[^\r\n]", release);
    }
}

const char* getOsRelease(const char* fallback) {
    static char osRelease[RELEASE_SIZE];
    Pipe pipe("cat /etc/system-release");
    if (!pipe) {
        logPopenFailure(LINUX_SOURCE, __LINE__, "cat");
        return fallback;
    }
    // The last line read wins: a release file holds its description last.
    readCommandLines(pipe.get(), 1024,
                     [](const char* line) { parseOsReleaseLine(line, osRelease); });
    return osRelease;
}

void getCpuInfo() {
    FILE* out = work::logOs;
    int sockets = 0;
    {
        Pipe pipe("grep -e \"physical id\" /proc/cpuinfo | uniq | wc -l");
        if (!pipe) {
            logPopenFailure(LINUX_SOURCE, __LINE__, "grep");
            writeLabelled(_("Sockets:"), _("n/a"));
            blankLine();
            return;
        }
        readCommandLines(pipe.get(), 1024, [&](const char* line) { sscanf(line, "%d", &sockets); });
    }
    fprintf(out, "%-20s  %d\n", _("Sockets:"), sockets);

    // One line per logical processor: model name|physical id|core id|cpu cores.
    Pipe pipe("grep -e \"physical id\"  -e \"core id\" -e \"model name\" -e \"cpu cores\" "
              "/proc/cpuinfo | cut -d \":\" -f 2- | sed 's/^[ \t]*//' | sed 'N;s/\\n/|/' | "
              "sed 'N;s/\\n/|/'");
    if (!pipe) {
        logPopenFailure(LINUX_SOURCE, __LINE__, "grep");
        blankLine();
        return;
    }
    char model[256] = {};
    int physicalId = 0;
    int coreId = 0;
    int cores = 0;
    int previousId = -1;
    readCommandLines(pipe.get(), 1024, [&](const char* line) {
        sscanf(line, "%255[^|]|%d|%d|%d", model, &physicalId, &coreId, &cores);
        // A socket is listed again whenever the processors of two sockets interleave.
        if (physicalId == previousId) return;
        previousId = physicalId;
        char label[64];
        char value[320];
        snprintf(label, sizeof label, "%s %d:", _("Socket"), physicalId);
        snprintf(value, sizeof value, "%s, %d %s", model, cores, _("cores"));
        writeFact(label, value);
    });
    blankLine();
}

void getInstalledKernels() {
    fprintf(work::logOs, "%s\n", _("Installed kernels:"));
    Pipe pipe("ls -h /boot | grep \"vmlinuz*\" | sort -r");
    if (!pipe) {
        logPopenFailure(LINUX_SOURCE, __LINE__, "ls");
        return;
    }
    // The eight characters "vmlinuz-" are cut off whatever the line holds.
    readCommandLines(pipe.get(), 1024, [](const char* line) {
        fprintf(work::logOs, "  %s", strlen(line) >= 8 ? line + 8 : "");
    });
}

void enumerateSystem() {
    const char* title = _("SYSTEM");
    // The log header's own rule stands right above this first section.
    beginSection(title, false);

    struct utsname names = {};
    uname(&names);
    snprintf(work::nodename, sizeof work::nodename, "%s", names.nodename);
    writeLabelled(_("Host Name:"), work::nodename);
    blankLine();

    writeLabelled(_("Operating System:"), getOsRelease(names.sysname));
    writeLabelled(_("Version:"), names.version);
    writeLabelled(_("Kernel:"), names.release);
    writeLabelled(_("Platform:"), names.machine);
    blankLine();
    writeSystemFacts(names);

    getDmiInfo();
    getCpuInfo();

    struct sysinfo info = {};
    sysinfo(&info);
    // The boot time is now minus the uptime: both are read together, or the time spent on
    // the lines between them (a slow disk, a busy machine) would move the boot time later.
    time_t now = time(nullptr);
    writeMemory(info);
    writeLocaleAndZone(now);
    writeUptimeAndBoot(info, now);

    getInstalledKernels();
    blankLine();
    endSection(title);
}
