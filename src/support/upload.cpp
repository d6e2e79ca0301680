// The upload mode: an existing archive to a regional support FTP server, then the case update.
#include "support/upload.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>

#include "common/string_helpers.h"
#include "common/transfer.h"
#include "frame/app.h"
#include "frame/file.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/report.h"
#include "frame/work.h"
#include "privacy/obfuscation_map.h"
#include "support/case_update.h"
#include "support/support_servers.h"

namespace {

constexpr size_t REGION_LIST_SIZE = 1024;
constexpr size_t REMOTE_URL_SIZE = 1024;
constexpr size_t STATISTICS_SIZE = 2048;
constexpr size_t CASE_NUMBER_LENGTH = 8;

// The region as every later message shows it, upper case; the command line's own text stays
// untouched.
char regionUpper[256];

[[noreturn]] void failWith(const char* message) {
    fprintf(stderr, "%s: %s\n", PROGRAM_NAME, message);
    exit(1);
}

// Selects the server of the region argument (the last one listed for it wins); exits 1 with
// the list of known regions when there is none.
void selectServer(JsonDocument& config, FtpServer& server) {
    char regions[REGION_LIST_SIZE] = {};
    bool found = false;
    int count = static_cast<int>(config.getArraySize("ftp_servers[]"));
    for (int i = 0; i < count; ++i) {
        char path[128] = {};
        snprintf(path, sizeof path, "ftp_servers[%d]->region", i);
        const char* region = config.getValue<char*>(path);
        if (strcasecmp(region, work::ftpRegion) == 0) {
            readFtpServer(config, i, server);
            found = true;
        }
        appendRegionName(regions, sizeof regions, region, i, count);
    }
    if (!found) {
        fprintf(stderr, "%s: %s %s\n", PROGRAM_NAME, _("support region must be one of"), regions);
        exit(1);
    }
}

}  // namespace

char* appendRegionName(char* list, size_t size, const char* region, int index, int count) {
    size_t used = strnlen(list, size);
    if (used + 1 >= size) return list;
    const char* before = "";
    char separator[64] = {};
    if (index > 0 && index == count - 1) {
        snprintf(separator, sizeof separator, " %s ", _("or"));
        before = separator;
    } else if (index > 0) {
        before = ", ";
    }
    snprintf(list + used, size - used, "%s%s", before, region);
    return list;
}

/// Whether the file is an obfuscation mapping, by its name or by its first bytes: the mapping
/// holds the very values obfuscation keeps in the house.
bool isObfuscationMapping(const char* path) {
    const char* suffix = ".map.json";
    size_t length = strlen(path);
    if (length >= strlen(suffix) && strcmp(path + length - strlen(suffix), suffix) == 0) return true;
    File file(path, "rb");
    char head[256];
    size_t got = file ? fread(head, 1, sizeof head, file.get()) : 0;
    return privacy::looksLikeMapping(head, got);
}

bool isValidCaseNumber(const char* caseNumber) {
    return strlen(caseNumber) == CASE_NUMBER_LENGTH &&
           str_isnumeric(caseNumber, CASE_NUMBER_LENGTH);
}

void uploadToFtp() {
    // The checks run in a fixed order: configuration, region, case number, archive.
    JsonDocument config;
    char configPath[PATH_SIZE];
    if (config.loadDocument(programFile(CONFIG_FILE_NAME, configPath, sizeof configPath)) != 0) failWith(_("failed to load the gatr_config file"));

    FtpServer server;
    selectServer(config, server);
    if (!isValidCaseNumber(work::ftpCaseNumber)) {
        failWith(_("case number must be eight digits (including leading zeroes)"));
    }
    struct stat info;
    // A folder would go up as 0 bytes and still be recorded in the case as the archive.
    if (stat(work::ftpArchiveFileName, &info) != 0 || !S_ISREG(info.st_mode))
        failWith(_("archive file does not exist"));
    if (isObfuscationMapping(work::ftpArchiveFileName))
        failWith(_("archive file is an obfuscation mapping, which stays with the customer"));

    snprintf(regionUpper, sizeof regionUpper, "%s", work::ftpRegion);
    str_toupper(regionUpper, strlen(regionUpper));
    work::ftpRegion = regionUpper;
    const char* archive = work::ftpArchiveFileName;
    printf(_("%s: commencing upload of %s to %s FTP server\n"), PROGRAM_NAME, archive,
           work::ftpRegion);
    fflush(stdout);

    File file(archive, "rb");
    if (!file) {
        fprintf(stderr, "%s: %s %s: %s\n", PROGRAM_NAME, _("unable to open file"), archive,
                strerror(errno));
        exit(1);
    }

    char remote[REMOTE_URL_SIZE] = {};
    snprintf(remote, sizeof remote, "%s:%d/%s_%s", server.url, server.port, work::ftpCaseNumber,
             archiveBaseName(archive));
    char statistics[STATISTICS_SIZE] = {};
    if (!executeCurl(remote, CURL_METHOD_UPLOAD, 0, static_cast<const char*>(nullptr), file.get(),
                     statistics, sizeof statistics, server.useSecure,
                     (work::options & OPT_VERBOSE) != 0, 0, "anonymous", nullptr)) {
        fprintf(stderr,
                _("%s: upload of %s to %s FTP server failed - refer to the gatr_errors.log for "
                  "details\n"),
                PROGRAM_NAME, archive, work::ftpRegion);
        file.close();
        exit(1);
    }

    logError(__FILE__, __LINE__, STATUS_INFORMATION, _("completed upload of %s to %s FTP server - %s"),
             archive, work::ftpRegion, statistics);
    printf(_("%s: completed upload of %s to %s FTP server - %s\n"), PROGRAM_NAME, archive,
           work::ftpRegion, statistics);
    fflush(stdout);
    file.close();

    updateSalesforceCase(server.url);
}
