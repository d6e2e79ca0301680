// The ENVIRONMENT, SERVER TUNING, DEVICES and STORAGE sections.
#include "inventory/linux_sections.h"

#include <cstdio>

#include "frame/i18n.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/linux_blocks.h"

void enumerateEnvironment() {
    const char* title = _("ENVIRONMENT");
    beginSection(title);
    if (!copyCommandBlock(nullptr, "printenv", "printenv", LineFilter::None)) return;
    endSection(title);
}

void enumerateServerTuning() {
    const char* title = _("SERVER TUNING");
    beginSection(title);
    char heading[64];
    snprintf(heading, sizeof heading, "%-20s", _("ulimit:"));
    if (!copyCommandBlock(heading, "ulimit -a", "ulimit", LineFilter::None)) return;
    endSection(title);
}

void enumerateDevices() {
    const char* title = _("DEVICES");
    beginSection(title);
    if (!copyCommandBlock("SCSI devices:", "cat /proc/scsi/scsi 2>&1", "cat", LineFilter::Errors)) {
        return;
    }
    if (!copyCommandBlock(_("Block devices:"),
                          "lsblk -io KNAME,TYPE,MOUNTPOINT,FSTYPE,SIZE,MODEL,LOG-SEC,PHY-SEC,RM,"
                          "RO,OWNER,GROUP,MODE,STATE,UUID 2>&1",
                          "lsblk", LineFilter::Errors)) {
        return;
    }
    if (!copyCommandBlock(_("Loop devices:"), "losetup -a 2>&1", "losetup", LineFilter::Errors)) {
        return;
    }
    endSection(title);
}

void enumerateStorage() {
    const char* title = _("STORAGE");
    beginSection(title);
    if (!copyCommandBlock(nullptr, "df --print-type -h 2>&1", "df", LineFilter::Errors)) return;
    work::archiveList.push_back("/etc/fstab");
    endSection(title);
}
