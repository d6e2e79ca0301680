// Firmware, board and virtualisation lines of the SYSTEM section.
#include "inventory/linux_dmi.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "common/child_process.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/linux_blocks.h"

namespace {

constexpr const char* DMIDECODE_PATH = "/usr/sbin/dmidecode";

struct DmiKey {
    int type;
    const char* key;
    const char* format;
    size_t offset;
};

// Each key is looked for anywhere in a line of its own table and parsed from there on.
const DmiKey DMI_KEYS[] = {
    {0, "Vendor:", "Vendor: %127[^\r\n]", offsetof(DmiRecord, biosVendor)},
    {0, "Version:", "Version: %127[^\r\n]", offsetof(DmiRecord, biosVersion)},
    {0, "Release Date:", "Release Date: %127[^\r\n]", offsetof(DmiRecord, biosReleaseDate)},
    {1, "Manufacturer:", "Manufacturer: %127[^\r\n]", offsetof(DmiRecord, systemManufacturer)},
    {1, "Product Name:", "Product Name: %127[^\r\n]", offsetof(DmiRecord, systemProductName)},
    {1, "Version:", "Version: %127[^\r\n]", offsetof(DmiRecord, systemVersion)},
    {1, "UUID:", "UUID: %127[^\r\n]", offsetof(DmiRecord, systemUuid)},
    {2, "Manufacturer:", "Manufacturer: %127[^\r\n]", offsetof(DmiRecord, boardManufacturer)},
    {2, "Product Name:", "Product Name: %127[^\r\n]", offsetof(DmiRecord, boardProductName)},
    {2, "Version:", "Version: %127[^\r\n]", offsetof(DmiRecord, boardVersion)},
};

void writeUnavailable() {
    const char* na = _("n/a");
    writeLabelled(_("Provisioning:"), na);
    fprintf(work::logOs, "\n");
    writeLabelled(_("System:"), na);
    writeLabelled(_("UUID:"), na);
    writeLabelled(_("Motherboard:"), na);
    fprintf(work::logOs, "\n");
    writeLabelled(_("Firmware:"), na);
    fprintf(work::logOs, "\n");
}

}  // namespace

void resetDmiRecord(DmiRecord& record) {
    memset(&record, 0, sizeof record);
    record.currentType = -1;
}

void parseDmiLine(DmiRecord& record, const char* line) {
    const char* header = strstr(line, "DMI type");
    if (header != nullptr) sscanf(header, "DMI type %d,", &record.currentType);
    for (const DmiKey& key : DMI_KEYS) {
        if (key.type != record.currentType) continue;
        const char* found = strstr(line, key.key);
        if (found == nullptr) continue;
        char* field = reinterpret_cast<char*>(&record) + key.offset;
        sscanf(found, key.format, field);
    }
    if (record.currentType == 0 && strstr(line, "UEFI is supported") != nullptr) {
        record.uefiSupported = true;
    }
}

bool isVirtualised(const char* manufacturer, const char* productName) {
    // Every VMware product name seen so far begins with the vendor's name, so only six
    // characters are compared; the others are matched whole.
    if (strncmp(productName, "VMware", 6) == 0) return true;
    for (const char* name : {"VirtualBox", "KVM", "Bochs", "HVM domU"}) {
        if (strcmp(productName, name) == 0) return true;
    }
    return strcmp(productName, "Virtual Machine") == 0 &&
           strcmp(manufacturer, "Microsoft Corporation") == 0;
}

void writeDmiRecord(const DmiRecord& record) {
    FILE* out = work::logOs;
    const char* version = _("version");
    char text[4 * DMI_TEXT_SIZE];
    bool virtualised = isVirtualised(record.systemManufacturer, record.systemProductName);
    writeLabelled(_("Provisioning:"), virtualised ? _("Virtualised") : _("Physical"));
    fprintf(out, "\n");
    snprintf(text, sizeof text, "%s %s, %s %s", record.systemManufacturer,
             record.systemProductName, version, record.systemVersion);
    writeLabelled(_("System:"), text);
    writeLabelled(_("UUID:"), record.systemUuid);
    snprintf(text, sizeof text, "%s %s, %s %s", record.boardManufacturer, record.boardProductName,
             version, record.boardVersion);
    writeLabelled(_("Motherboard:"), text);
    fprintf(out, "\n");
    writeLabelled(_("Firmware mode:"), record.uefiSupported ? "UEFI" : "BIOS");
    snprintf(text, sizeof text, "%s, %s, %s", record.biosVendor, record.biosVersion,
             record.biosReleaseDate);
    writeLabelled(_("Firmware:"), text);
    fprintf(out, "\n");
}

void getDmiInfo() {
    struct stat info;
    if (stat(DMIDECODE_PATH, &info) != 0) {
        logError(LINUX_SOURCE, __LINE__, STATUS_WARNING,
                 "cannot enumerate BIOS as dmidecode is not installed: run %s",
                 "yum install dmidecode");
        writeUnavailable();
        return;
    }
    DmiRecord record;
    resetDmiRecord(record);
    Pipe pipe("dmidecode -t 0,1,2");
    if (pipe) {
        readCommandLines(pipe.get(), 1024, [&](const char* line) { parseDmiLine(record, line); });
        pipe.close();
    } else {
        logPopenFailure(LINUX_SOURCE, __LINE__, "dmidecode");
    }
    writeDmiRecord(record);
}
