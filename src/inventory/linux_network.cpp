// The NETWORKING section: adapters, interfaces, proxy settings and network statistics.
#include <cstdio>
#include <cstring>

#include "common/shell_escape.h"
#include "frame/i18n.h"
#include "common/child_process.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/linux_blocks.h"
#include "inventory/linux_sections.h"

namespace {

constexpr const char* ENVIRONMENT_FILE = "/etc/environment";

/// Copies the details of one PCI device; a device whose details cannot be read is skipped.
void copyAdapterDetails(const char* address) {
    char escaped[64];
    escapeForDoubleQuotes(address, escaped, sizeof escaped);
    char command[128];
    snprintf(command, sizeof command, "lspci -v -s \"%s\"", escaped);
    Pipe pipe(command);
    if (!pipe) return;
    readCommandLines(pipe.get(), 1024,
                     [](const char* line) { fprintf(work::logOs, "  %s", line); });
}

bool isProxyLine(const char* line) {
    return strcasestr(line, "_proxy=") != nullptr || strcasestr(line, "_proxy =") != nullptr;
}

}  // namespace

void enumerateNetworkingAdapters() {
    if (writeIfNotInstalled(_("Adapters:"), "lspci")) return;
    Pipe pipe("lspci | grep -e \"Ethernet controller\" -e \"Network controller\"");
    if (!pipe) {
        logPopenFailure(LINUX_SOURCE, __LINE__, "lspci");
        return;
    }
    fprintf(work::logOs, "%s\n", _("Adapters:"));
    readCommandLines(pipe.get(), 1024, [](const char* line) {
        char address[32] = {};
        if (sscanf(line, "%31[^ ] %*s", address) < 1) return;
        copyAdapterDetails(address);
    });
    fprintf(work::logOs, "\n");
}

void enumerateNetworkingInterfaces() {
    // The interfaces were once read with ifconfig; support still searches the logs for that
    // word, so a failure keeps naming it.
    if (writeIfNotInstalled(_("Interfaces:"), "ip")) return;
    copyCommandBlock(_("Interfaces:"), "ip addr show", "ifconfig", LineFilter::None);
}

void enumerateNetworkingProxySettings() {
    FILE* out = work::logOs;
    fprintf(out, "%s\n", _("Proxy settings:"));
    File file(ENVIRONMENT_FILE, "r");
    if (!file) {
        logFopenFailure(LINUX_SOURCE, __LINE__, ENVIRONMENT_FILE);
        fprintf(out, "  %s\n\n", _("no data is available"));
        return;
    }
    bool found = false;
    readCommandLines(file.get(), 2048, [&](const char* line) {
        if (!isProxyLine(line)) return;
        fprintf(out, "  %s", line);
        found = true;
    });
    if (!found) fprintf(out, "  %s\n", _("no proxy settings in effect"));
    fprintf(out, "\n");
}

void enumerateNetworkingStatistics() {
    FILE* out = work::logOs;
    fprintf(out, "%s\n\n", _("Network statistics:"));
    if (writeIfNotInstalled(nullptr, "netstat")) return;
    char path[PATH_SIZE];
    // Named after the program, not the host, like every file in the logs folder.
    snprintf(path, sizeof path, "%s/logs/%s_netstat.log", work::outputFolder, PROGRAM_NAME);
    auto heading = [](FILE* file) { fprintf(file, "%s\n\n", _("Network statistics")); };
    if (!copyCommandToFile(path, heading, "netstat -atup 2>&1", "netstat", 1024)) return;
    fprintf(out, "  %s %s\n\n", _("network statistics are listed in the file"), path);
    work::archiveList.push_back(path);
}

void enumerateNetworking() {
    const char* title = _("NETWORKING");
    beginSection(title);
    enumerateNetworkingAdapters();
    enumerateNetworkingInterfaces();
    enumerateNetworkingProxySettings();
    enumerateNetworkingStatistics();
    work::archiveList.push_back("/etc/hosts");
    endSection(title);
}
