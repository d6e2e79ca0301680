// The backup product's local REST client.
#include "products/orb_rest.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/transfer.h"
#include "frame/logging.h"
#include "frame/masking.h"
#include "frame/report.h"
#include "frame/work.h"

const OrbEndpoint ORB_VERSION_ENDPOINT = {"https://localhost:%d/orb/version/", nullptr};
const OrbEndpoint ORB_NOTIFY_ENDPOINT = {"https://localhost:%d/orb/%s/notify/",
                                         "%s/logs/%s_orb-notify.json"};
const OrbEndpoint ORB_SMTP_ENDPOINT = {"https://localhost:%d/orb/%s/smtp/",
                                       "%s/logs/%s_orb-smtp.json"};
const OrbEndpoint ORB_SYSTEM_ENDPOINT = {"https://localhost:%d/orb/%s/system/",
                                         "%s/logs/%s_orb-system.json"};
const OrbEndpoint ORB_VOLUME_ENDPOINT = {"https://localhost:%d/orb/%s/volume/",
                                         "%s/logs/%s_orb-volume.json"};
const OrbEndpoint ORB_DESTINATION_ENDPOINT = {"https://localhost:%d/orb/%s/destination/",
                                              "%s/logs/%s_orb-destination.json"};
const OrbEndpoint ORB_BACKUP_ENDPOINT = {"https://localhost:%d/orb/%s/backup/",
                                         "%s/logs/%s_orb-backup.json"};
// The thread dump writes its own file of several answers; nothing is kept per request.
const OrbEndpoint ORB_THREADS_ENDPOINT = {"https://localhost:%d/orb/threads/", nullptr};

namespace {

constexpr size_t HEADER_SIZE = 128;

}  // namespace

char* formatOrbUrl(char* url, size_t size, const OrbEndpoint& endpoint, int port,
                   const char* apiVersion) {
    // Templates without a version placeholder simply leave the last argument unused.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(url, size, endpoint.url, port, apiVersion != nullptr ? apiVersion : "");
#pragma GCC diagnostic pop
    return url;
}

bool requestOrb(const char* url, const char* token, char* answer, unsigned long answerSize,
                long timeLimit) {
    char header[HEADER_SIZE] = {};
    if (token != nullptr) snprintf(header, sizeof header, "Authorization: Token %s", token);
    // The service's certificate is its own, self-signed one: the peer is not verified, and
    // the request stays on the local host.
    return executeCurl(url, CURL_METHOD_GET, 0, token != nullptr ? header : nullptr, nullptr,
                       answer, answerSize, false, false, timeLimit, nullptr, nullptr);
}

void writeOrbFailure() {
    writeRetrievalFailure(4);
}

bool parseOrbAnswer(const char* answer, JsonDocument& document) {
    if (document.loadDocument(answer, strlen(answer)) == 0) return true;
    writeOrbFailure();
    return false;
}

bool fetchOrbDocument(const OrbEndpoint& endpoint, int port, const char* token,
                      const char* apiVersion, JsonDocument& document) {
    char url[1024] = {};
    formatOrbUrl(url, sizeof url, endpoint, port, apiVersion);
    char answer[ORB_ANSWER_SIZE];
    if (!requestOrb(url, token, answer, sizeof answer)) {
        writeOrbFailure();
        return false;
    }
    return parseOrbAnswer(answer, document);
}

void keepOrbAnswer(JsonDocument& document, const OrbEndpoint& endpoint) {
    if (!work::hasOrbDebugOn || endpoint.keptFile == nullptr) return;
    char path[PATH_SIZE] = {};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(path, sizeof path, endpoint.keptFile, work::outputFolder, PROGRAM_NAME);
#pragma GCC diagnostic pop
    // A kept answer may hold the mail server's password: it is masked before it is written.
    char* text = nullptr;
    size_t length = 0;
    FILE* memory = open_memstream(&text, &length);
    if (memory == nullptr) return;
    int written = document.writeDocument(JSON_FORMAT_PRETTY, memory);
    fclose(memory);
    std::string kept(text != nullptr ? text : "", length);
    free(text);
    if (written != 0) return;
    maskConfiguration(kept);
    File file(path, "w");
    if (!file || fwrite(kept.data(), 1, kept.size(), file.get()) != kept.size() || file.close() != 0) {
        logFopenFailure(__FILE__, __LINE__, path);
        return;
    }
    logError(__FILE__, __LINE__, STATUS_DEBUG, "%s", path);
    work::archiveList.push_back(path);
}
