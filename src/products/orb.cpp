// The backup product section: detection, facts, probes, the REST reports, the manifest, the
// dependency list and, on request, the thread dump.
#include "products/orb.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>

#include "collect/manifest.h"
#include "frame/i18n.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/probes.h"
#include "products/orb_rest.h"
#include "products/products.h"

namespace {

constexpr size_t TOKEN_SIZE = 64;
constexpr size_t API_VERSION_SIZE = 16;
// The version answer is small; it gets a smaller buffer than the reports' answers.
constexpr unsigned long VERSION_ANSWER_SIZE = 4096;

void writeInstalled(const char* answer) {
    writeLabelled(_("Installed:"), answer);
    if (work::logOs != nullptr) fputc('\n', work::logOs);
}

}  // namespace

void getOrbParameters(int& port, char* token, unsigned long tokenSize, char* apiVersion,
                      unsigned long apiVersionSize) {
    memset(token, 0, tokenSize);
    memset(apiVersion, 0, apiVersionSize);

    JsonDocument config;
    if (config.loadDocument(ORB_CONFIG_FILE) != 0) return;
    port = config.getValue<int>("rest_port");
    if (port == 0) port = ORB_DEFAULT_REST_PORT;
    config.getValue("admin_token", token, tokenSize);

    char url[1024] = {};
    formatOrbUrl(url, sizeof url, ORB_VERSION_ENDPOINT, port, nullptr);
    char answer[VERSION_ANSWER_SIZE];
    // The version is public: it is asked for without the token.
    if (!requestOrb(url, nullptr, answer, sizeof answer)) return;
    JsonDocument version;
    if (version.loadDocument(answer, strlen(answer)) != 0) return;
    version.getValue("api_version", apiVersion, apiVersionSize);
}

void getOrbConfiguration(int port, const char* token, const char* apiVersion) {
    if (work::logOs != nullptr) fprintf(work::logOs, "%-20s\n", _("Configuration:"));
    getOrbConfigurationNotifications(port, token, apiVersion);
    getOrbConfigurationJobs(port, token, apiVersion);
    getOrbConfigurationDestinations(port, token, apiVersion);
}

void enumerateOrb(bool debug, bool threads) {
    const char* banner = _("BRIMWELL IRONKEEP ORB");
    work::settings.setValue<void*>("products->orb", JSON_OBJECT, nullptr);
    work::hasOrbDebugOn = debug;
    beginSection(banner);

    struct stat info = {};
    if (stat(ORB_SERVICE_EXECUTABLE, &info) != 0) {
        writeInstalled(_("no"));
        work::settings.setValue<bool>("products->orb->installed", JSON_BOOLEAN, false);
        work::settings.setValue<void*>("products->orb->package", JSON_NULL, nullptr);
        endSection(banner);
        return;
    }
    work::detected |= DETECTED_ORB;
    writeInstalled(_("yes"));
    work::settings.setValue<bool>("products->orb->installed", JSON_BOOLEAN, true);

    // The package line keeps the package tool's own newline, so none is added here.
    std::string package = getDaemonPackage("orb");
    if (work::logOs != nullptr) fprintf(work::logOs, "%-20s  %s", _("Package:"), package.c_str());
    work::settings.setValue<const char*>("products->orb->package", JSON_STRING, package.c_str());

    int port = 0;
    char token[TOKEN_SIZE] = {};
    char apiVersion[API_VERSION_SIZE] = {};
    getOrbParameters(port, token, sizeof token, apiVersion, sizeof apiVersion);

    getDaemon("orb_service");
    getDaemonModule("orb_service", ORB_SERVICE_EXECUTABLE);
    getKernelModule("brwvsm");

    // The reports run even without parameters: each then prints its own failure line, and
    // the section never stops early once the product is installed.
    getOrbConfiguration(port, token, apiVersion);

    processManifest(ORB_HOME, "orb");
    generateDependencyList();
    if (threads) generateOrbThreadDump(port, token);

    memset(token, 0, sizeof token);
    endSection(banner);
}
