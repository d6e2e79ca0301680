// The diagnostics run: the main log with every section in a fixed order, then the archive.
#include "diagnostics.h"

#include <cstdio>

#include "collect/archive.h"
#include "collect/obfuscation_setup.h"
#include "frame/console.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/run_record.h"
#include "frame/work.h"
#include "inventory/linux_sections.h"
#include "inventory/linux_system.h"
#include "products/products.h"

namespace {

void printStatus(const char* message) {
    printf("%s: %s\n", PROGRAM_NAME, message);
}

void printUploadInstructions(const char* archivePath) {
    printf(_("\n"
             "     upload the generated archive:\n"
             "\n"
             "     %s\n"
             "\n"
             "     to the Brimwell Support FTP servers using the gatr --upload-ftp\n"
             "     argument or alternatively, refer to the article at\n"
             "     https://support.brimwell.com/s/article/upload-diagnostics-to-a-support-case\n"
             "     for details on how to upload the generated archive to the Brimwell \n"
             "     Support FTP servers in your region\n"),
           archivePath);
}

/// Makes "system" and "products" exist as objects; what an earlier run left in them stays
/// until a section sets it again.
void seedSettings() {
    work::settings.setValue<void*>("system", JSON_OBJECT, nullptr);
    work::settings.setValue<void*>("products", JSON_OBJECT, nullptr);
}

}  // namespace

int generateDiagnostics() {
    bool silent = (work::options & OPT_SILENT) != 0;
    if (!silent) printStatus(_("diagnostics generation commenced"));
    startRunRecord();
    enableLogging();
    prepareObfuscation();
    setProgressBar(2);
    seedSettings();

    enumerateSystem();
    setProgressBar(10);
    enumerateEnvironment();
    setProgressBar(15);
    enumerateServerTuning();
    setProgressBar(20);
    enumerateDevices();
    setProgressBar(30);
    enumerateStorage();
    setProgressBar(40);
    enumerateNetworking();
    setProgressBar(50);
    enumeratePackages();
    setProgressBar(60);
    enumerateOrb((work::options & OPT_DEBUG_ORB) != 0, (work::options & OPT_ORB_THREADS) != 0);
    setProgressBar(67);
    enumerateTallyhub();
    setProgressBar(74);
    enumerateWatchpost();
    setProgressBar(81);

    // The main log must be complete before it is packed.
    disableLogging();
    setProgressBar(88);

    char archivePath[PATH_SIZE] = {};
    ArchiveResult archive = createArchive((work::options & OPT_NO_ARCHIVE) != 0, archivePath);
    finishObfuscation(archive == ArchiveResult::MADE ? archivePath : nullptr);
    if (!silent) {
        setProgressBar(100);
        printStatus(_("diagnostics generation completed"));
        if (archive == ArchiveResult::MADE) printUploadInstructions(archivePath);
    }
    if (archive != ArchiveResult::FAILED) return 0;
    fflush(stdout);
    fprintf(stderr, "%s: %s\n", PROGRAM_NAME,
            _("the archive could not be created - refer to the gatr_errors.log for details"));
    return 1;
}
