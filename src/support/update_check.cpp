// checkForUpdate: the control file on the control FTP server, the download and its hash.
#include "support/update_check.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/crypto.h"
#include "common/transfer.h"
#include "frame/app.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/report.h"
#include "frame/work.h"
#include "support/support_servers.h"

namespace {

constexpr size_t CONTROL_FILE_SIZE = 4096;
constexpr size_t VERSION_SIZE = 32;
constexpr size_t DOWNLOAD_URL_SIZE = 1024;
constexpr size_t HASH_TEXT_SIZE = 65;
constexpr size_t STATISTICS_SIZE = 4096;
constexpr long CONTROL_TIMEOUT = 60;

// The keys that introduce the three fields are empty in this version, so each search finds the
// start of the file and every field is the control file's first word.
constexpr const char* VERSION_KEY = "";
constexpr const char* URL_KEY = "";
constexpr const char* HASH_KEY = "";
// One word each, bounded by its buffer; the bracket after the conversion is never reached.
constexpr const char* VERSION_FORMAT = "%31s[^\r\n;]";
constexpr const char* URL_FORMAT = "%1023s[^\r\n;]";
constexpr const char* HASH_FORMAT = "%64s[^\r\n;]";

__attribute__((format(printf, 1, 2))) void say(const char* format, ...) {
    if (work::options & OPT_SILENT) return;
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}

void sayOutcome(const char* word) { say(" %s\n", word); }

void reportMalformed() {
    logError(__FILE__, __LINE__, STATUS_ERROR, "%s", _("malformed data encountered"));
    sayOutcome(_("malformed data encountered"));
}

// Compares the downloaded file with the official hash; exits 1 unless they match.
void verifyDownload(const char* fileName, const char* officialHash) {
    char computed[HASH_TEXT_SIZE] = {};
    Crypto crypto;
    if (crypto.computeHash(CRYPTO_SHA256, fileName, computed) != 0) {
        say("%s: %s\n", PROGRAM_NAME, _("unable to verify SHA256 cryptographic hash"));
        exit(1);
    }
    if (strcmp(computed, officialHash) == 0) {
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "sha256: %s  %s", computed, _("OK"));
        say("%s:sha256: %s  %s\n", PROGRAM_NAME, computed, _("OK"));
        return;
    }
    logError(__FILE__, __LINE__, STATUS_ERROR,
             "%s:\n\n     sha256: %s\n\n     %s:\n\n     \t\t\t\t\t\t\t\t\tsha256: %s",
             _("computed hash"), computed, _("does not match official hash"), officialHash);
    // The first two values stand in this order on the console, as they always have.
    say("%s: %s:\n\n     sha256: %s\n\n     \t\t\t\t\t%s:\n\n     sha256: %s\n",
        _("computed hash"), PROGRAM_NAME, computed, _("does not match official hash"),
        officialHash);
    exit(1);
}

// Downloads url into ./<file name> and verifies it; exits 0 when done, 1 on failure. Returns
// only when no file could be made.
void downloadUpdate(const char* url, const char* officialHash) {
    const char* slash = strrchr(url, '/');
    if (slash == nullptr) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s", _("null pointer encountered"));
        sayOutcome(_("failed"));
        return;
    }
    const char* fileName = slash + 1;
    File file(fileName, "wb");
    if (!file) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s %s: %s", _("unable to open file"), fileName,
                 strerror(errno));
        sayOutcome(_("failed"));
        return;
    }
    char statistics[STATISTICS_SIZE] = {};
    if (!executeCurl(url, CURL_METHOD_DOWNLOAD, 0, static_cast<const char*>(nullptr), file.get(),
                     statistics, sizeof statistics, false, false, 0, nullptr, nullptr)) {
        sayOutcome(_("failed"));
        file.close();
        remove(fileName);
        exit(1);
    }
    file.close();
    sayOutcome(_("completed"));
    logError(__FILE__, __LINE__, STATUS_INFORMATION, _("update has been downloaded to ./%s - %s"),
             fileName, statistics);
    say(_("%s: update has been downloaded to ./%s - %s\n"), PROGRAM_NAME, fileName, statistics);

    if (officialHash[0] != '\0') verifyDownload(fileName, officialHash);
    say("\n     %s:\n\n     tar -zxvf %s\n\n     %s\n", _("decompress the archive by running"),
        fileName, _("and then run the application again"));
    exit(0);
}

}  // namespace

bool readControlField(const char* text, const char* key, const char* format, char* field) {
    const char* found = strstr(text, key);
    if (found == nullptr) return false;
    // With no word after the key the field keeps its text: an empty control file leaves the
    // version empty, and an empty version reads as 0.0.0-0.
    sscanf(found + strlen(key), format, field);
    return true;
}

bool isRunningVersionLater(const char* running, const char* available) {
    int have[4] = {};
    int offered[4] = {};
    sscanf(running, "%d.%d.%d-%d", &have[0], &have[1], &have[2], &have[3]);
    sscanf(available, "%d.%d.%d-%d", &offered[0], &offered[1], &offered[2], &offered[3]);
    for (int i = 0; i < 4; ++i) {
        if (have[i] != offered[i]) return have[i] > offered[i];
    }
    return false;
}

void checkForUpdate() {
    if (work::options & OPT_NO_CHECK) return;
    say("%s: %s", PROGRAM_NAME, _("checking for update to application - please wait..."));

    JsonDocument config;
    char configPath[PATH_SIZE];
    if (config.loadDocument(programFile(CONFIG_FILE_NAME, configPath, sizeof configPath)) != 0) {
        sayOutcome(_("failed to load the gatr_config file"));
        return;
    }
    FtpServer control;
    readControlServer(config, control);
    char url[SERVER_URL_SIZE] = {};
    buildServerFileUrl(control, ".control", url, sizeof url);

    char text[CONTROL_FILE_SIZE] = {};
    if (!executeCurl(url, CURL_METHOD_DOWNLOAD, 0, static_cast<const char*>(nullptr), nullptr,
                     text, sizeof text, control.useSecure, false, CONTROL_TIMEOUT, "gatr",
                     nullptr)) {
        sayOutcome(_("failed"));
        return;
    }

    char version[VERSION_SIZE] = {};
    char download[DOWNLOAD_URL_SIZE] = {};
    char hash[HASH_TEXT_SIZE] = {};
    logError(__FILE__, __LINE__, STATUS_INFORMATION, _("check for update: %s"), VERSION_KEY);
    if (!readControlField(text, VERSION_KEY, VERSION_FORMAT, version)) {
        reportMalformed();
        return;
    }
    logError(__FILE__, __LINE__, STATUS_INFORMATION, _("available version: %s"), version);
    if (!readControlField(text, URL_KEY, URL_FORMAT, download)) {
        reportMalformed();
        return;
    }
    if (strcmp(version, PROGRAM_VERSION) == 0) {
        sayOutcome(_("completed"));
        return;
    }
    readControlField(text, HASH_KEY, HASH_FORMAT, hash);
    if (isRunningVersionLater(PROGRAM_VERSION, version)) {
        sayOutcome(_("you are running a later update than the current one available"));
        return;
    }
    say("\n%s\n", _("new update is available"));
    say("%s: %s", PROGRAM_NAME, _("commencing download of update - please wait..."));
    downloadUpdate(download, hash);
}
