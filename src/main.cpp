// gatr, the Support Data Gatherer: start-up order and the choice of the one run mode.
#include "diagnostics.h"
#include "frame/app.h"
#include "frame/cmdline.h"
#include "frame/folders.h"
#include "frame/limits.h"
#include "frame/logging.h"
#include "frame/priority.h"
#include "frame/run_lock.h"
#include "frame/work.h"
#include "support/hash_command.h"
#include "support/upload.h"

int main(int argc, char** argv) {
    if (initialize(argv[0]) != 0) return 1;
    parseCommandLine(argc, argv);
    checkPermissions();
    if (createOutputFolder() != 0) return 1;
    enableErrorLogging(false, argc, argv);
    reportUnguardedRun();
    // The upload mode reports a missing configuration file in its own words.
    bool hashing = (work::options & (OPT_HASH_SHA256 | OPT_HASH_SHA1 | OPT_HASH_MD5)) != 0;
    loadLimits(hashing || (work::options & OPT_UPLOAD_FTP) == 0);
    work::lowPriority = lowerPriority();

    int status = 0;
    if (work::options & OPT_HASH_SHA256) {
        hashPathname(CRYPTO_SHA256);
    } else if (work::options & OPT_HASH_SHA1) {
        hashPathname(CRYPTO_SHA1);
    } else if (work::options & OPT_HASH_MD5) {
        hashPathname(CRYPTO_MD5);
    } else if (work::options & OPT_UPLOAD_FTP) {
        uploadToFtp();
    } else {
        status = generateDiagnostics();
    }

    cleanup();
    return status;
}
