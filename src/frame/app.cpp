// Start-up, the root check and the end of every run.
#include "frame/app.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <climits>
#include <cstring>
#include <unistd.h>

#include <string>

#include "frame/folders.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

// The folder that holds the executable, or "" when it cannot be told. The kernel's own record
// of the executable comes first: started from the search path or through a symbolic link (as
// /usr/sbin/gatr is), argv[0] names no folder or the wrong one.
void findProgramFolder(const char* programPath, char* folder, size_t size) {
    char executable[PATH_SIZE] = {};
    ssize_t length = readlink("/proc/self/exe", executable, sizeof executable - 1);
    const char* path = programPath;
    if (length > 0 && static_cast<size_t>(length) < sizeof executable - 1) {
        executable[length] = '\0';
        path = executable;
    }
    const char* slash = strrchr(path, '/');
    if (slash == nullptr) return;
    // The root folder itself when the executable sits right in it.
    size_t used = slash == path ? 1 : static_cast<size_t>(slash - path);
    if (used >= size) used = size - 1;
    memcpy(folder, path, used);
    folder[used] = '\0';
}

}  // namespace

int initialize(const char* programPath) {
    work::detected = 0;
    char folder[PATH_SIZE] = {};
    findProgramFolder(programPath, folder, sizeof folder);
    // The working folder stays the caller's, so that every path typed on the command line means
    // what the user meant; etc/, var/ and locale/ are found through the program's own folder.
    char resolved[PATH_MAX] = {};
    if (realpath(folder[0] != '\0' ? folder : ".", resolved) == nullptr) return -1;
    snprintf(work::programFolder, sizeof work::programFolder, "%s", resolved);
    setlocale(LC_ALL, "");
    char locale[PATH_SIZE];
    bindtextdomain(PROGRAM_NAME, programFile("locale", locale, sizeof locale));
    bind_textdomain_codeset(PROGRAM_NAME, "UTF-8");
    textdomain(PROGRAM_NAME);

    // Any locale that groups digits gets a comma, whatever its own separator: support reads
    // the figures in one form. A locale that does not group gets plain figures.
    const struct lconv* conventions = localeconv();
    work::thousandsSeparator =
        (conventions->thousands_sep != nullptr && conventions->thousands_sep[0] != '\0') ? ',' : 0;
    return 0;
}

char* programFile(const char* relative, char* buffer, size_t size) {
    if (strncmp(relative, "./", 2) == 0) relative += 2;
    snprintf(buffer, size, "%s/%s", strcmp(work::programFolder, "/") == 0 ? "" : work::programFolder,
             relative);
    return buffer;
}

char* absolutePath(const char* path, char* buffer, size_t size) {
    char here[PATH_SIZE] = {};
    if (path[0] != '/' && getcwd(here, sizeof here) == nullptr) {
        snprintf(buffer, size, "%s", path);
        return buffer;
    }
    // "." and ".." are taken by their words, as the shell would: "./a" names the caller's a.
    std::string joined = path[0] == '/' ? std::string(path) : std::string(here) + "/" + path;
    snprintf(buffer, size, "%s", normalisePath(joined).c_str());
    return buffer;
}

void checkPermissions() {
    if (geteuid() != 0) {
        fprintf(stderr, "%s: %s\n", PROGRAM_NAME,
                _("you need to be root or invoke with sudo to run this application"));
        exit(1);
    }
}

int writeSettingsAtomically(const char* path) {
    // A run killed while writing, or a disk that fills up, must leave the old file or the new
    // one, never half of one: the new file takes the old one's place only once every byte of
    // it has reached the disk.
    if (!work::settings.isValid()) return -1;
    char temporary[PATH_SIZE + 16];
    snprintf(temporary, sizeof temporary, "%s.%ld.tmp", path, static_cast<long>(getpid()));
    FILE* file = fopen(temporary, "wbe");
    if (file == nullptr) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fopen on %s failed: %s", temporary,
                 strerror(errno));
        return -1;
    }
    work::settings.writeDocument(JSON_FORMAT_PRETTY, file);
    if (!closeSynced(file, temporary)) {
        remove(temporary);
        return -1;
    }
    if (rename(temporary, path) != 0) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "rename of %s to %s failed: %s", temporary,
                 path, strerror(errno));
        remove(temporary);
        return -1;
    }
    // The rename itself must reach the disk, or a crash could bring back a file naming an
    // archive that no longer exists.
    syncFolderOf(path);
    return 0;
}

void cleanup() {
    if (writeSettingsAtomically(work::settingsFileName) == -1) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "failed to write the settings file");
    }
    for (const std::string& folder : work::deleteFolderList) {
        removeDirectory(folder.c_str(), true);
    }
    work::deleteFolderList.clear();
    disableErrorLogging(false);
}
