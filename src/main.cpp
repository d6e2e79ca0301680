// gatr, the Support Data Gatherer: start-up order and the choice of the one run mode.
#include "app.h"
#include "cmdline.h"
#include "folders.h"
#include "logging.h"
#include "modes.h"
#include "work.h"

int main(int argc, char** argv) {
    if (initialize(argv[0]) != 0) return 1;
    parseCommandLine(argc, argv);
    checkPermissions();
    createOutputFolder();
    enableErrorLogging(false, argc, argv);

    if (work::options & OPT_HASH_SHA256) {
        hashPathname(CRYPTO_SHA256);
    } else if (work::options & OPT_HASH_SHA1) {
        hashPathname(CRYPTO_SHA1);
    } else if (work::options & OPT_HASH_MD5) {
        hashPathname(CRYPTO_MD5);
    } else if (work::options & OPT_UPLOAD_FTP) {
        uploadToFtp();
    } else {
        generateDiagnostics();
    }

    cleanup();
    return 0;
}
