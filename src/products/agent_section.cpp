// The plain product section: detection by the executable, facts, package, process and
// executable probes, and the product's manifest.
#include "products/agent_section.h"

#include <cstdio>
#include <string>
#include <sys/stat.h>

#include "collect/manifest.h"
#include "frame/i18n.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/probes.h"
#include "json/jsonparser.h"

namespace {

constexpr size_t FACT_PATH_SIZE = 128;

void setFactPath(char* path, const AgentProduct& product, const char* member) {
    if (member == nullptr) {
        snprintf(path, FACT_PATH_SIZE, "products->%s", product.shortName);
    } else {
        snprintf(path, FACT_PATH_SIZE, "products->%s->%s", product.shortName, member);
    }
}

}  // namespace

void enumerateAgentProduct(const AgentProduct& product) {
    const char* banner = _(product.banner);
    beginSection(banner);
    char fact[FACT_PATH_SIZE];
    setFactPath(fact, product, nullptr);
    work::settings.setValue<void*>(fact, JSON_OBJECT, nullptr);

    struct stat info;
    if (stat(product.executable, &info) != 0) {
        writeLog("%-20s  %s\n\n", _("Installed:"), _("no"));
        setFactPath(fact, product, "installed");
        work::settings.setValue<bool>(fact, JSON_BOOLEAN, false);
        setFactPath(fact, product, "package");
        work::settings.setValue<void*>(fact, JSON_NULL, nullptr);
        endSection(banner);
        return;
    }

    work::detected |= product.detectedBit;
    writeLog("%-20s  %s\n\n", _("Installed:"), _("yes"));
    setFactPath(fact, product, "installed");
    work::settings.setValue<bool>(fact, JSON_BOOLEAN, true);

    // The package line keeps rpm's own newline, which ends the "Package:" line.
    std::string package = getDaemonPackage(product.package);
    writeLog("%-20s  %s", _("Package:"), package.c_str());
    setFactPath(fact, product, "package");
    work::settings.setValue<char const*>(fact, JSON_STRING, package.c_str());

    getDaemon(product.process);
    getDaemonModule(product.process, product.executable);
    processManifest(product.manifestFolder, product.shortName);
    endSection(banner);
}
