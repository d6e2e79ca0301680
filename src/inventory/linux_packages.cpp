// The PACKAGES section: enabled repositories and the installed packages file.
#include <cstdio>

#include "frame/i18n.h"
#include "frame/report.h"
#include "frame/work.h"
#include "inventory/linux_blocks.h"
#include "inventory/linux_sections.h"

namespace {

// Package tools print long lines: their output is read 2048 bytes at a time.
constexpr size_t PACKAGE_LINE_SIZE = 2048;

const char* const PACKAGE_RULE =
    "======================================== ============================== "
    "==============================  ==============================";

void writePackagesHeading(FILE* file) {
    fprintf(file, "%s\n\n", _("Installed RPM packages"));
    fprintf(file, "%s\n", PACKAGE_RULE);
    fprintf(file, "%-40s %30s %30s  %-30s\n", _("Package"), _("Version"), _("Time Installed"),
            _("Maintainer"));
    fprintf(file, "%s\n", PACKAGE_RULE);
}

}  // namespace

void enumeratePackagesRepositories() {
    copyCommandBlock(_("Enabled repositories:"), "yum -v repolist enabled 2>&1", "yum",
                     LineFilter::Repositories, PACKAGE_LINE_SIZE);
}

void enumeratePackagesInstalled() {
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "%s/logs/%s_packages.log", work::outputFolder, PROGRAM_NAME);
    // rpm ends every record with the newline inside the query format.
    if (!copyCommandToFile(path, writePackagesHeading,
                           "rpm --query -all --queryformat '%-40{NAME} %30{VERSION} "
                           "%30{INSTALLTIME:date}  %{PACKAGER}\n' | sort -u",
                           "rpm", PACKAGE_LINE_SIZE)) {
        return;
    }
    fprintf(work::logOs, "%s %s\n\n", _("installed packages are listed in the file"), path);
    work::archiveList.push_back(path);
}

void enumeratePackages() {
    const char* title = _("PACKAGES");
    beginSection(title);
    enumeratePackagesRepositories();
    enumeratePackagesInstalled();
    endSection(title);
}
