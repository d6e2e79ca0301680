// Test program for the update check, which no run mode of gatr calls: it starts up as gatr does
// (own folder, command line, output folder, error log), runs checkForUpdate, and exits with 3
// when the check returns, so a test tells a return from the check's own exits (0 and 1).
#include <cstdio>

#include "frame/app.h"
#include "frame/cmdline.h"
#include "frame/folders.h"
#include "frame/logging.h"
#include "support/update_check.h"

int main(int argc, char** argv) {
    if (initialize(argv[0]) != 0) return 1;
    parseCommandLine(argc, argv);
    createOutputFolder();
    enableErrorLogging(false, argc, argv);
    checkForUpdate();
    cleanup();
    return 3;
}
