// The support case update: connector credentials, the OAuth password grant and the case record.
#include "support/case_update.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>

#include <openssl/crypto.h>

#include "common/crypto.h"
#include "common/string_helpers.h"
#include "common/transfer.h"
#include "frame/app.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"
#include "support/connector_key.h"
#include "support/support_servers.h"

namespace {

constexpr size_t CONNECTOR_FILE_SIZE = 4096;
constexpr size_t ENCIPHERED_SIZE = 1025;
// Deciphered values never exceed what the caller's 256-byte buffers hold.
constexpr int DECODED_LIMIT = 256;
constexpr int IV_SIZE = 16;
constexpr size_t RESPONSE_SIZE = 2048;
constexpr size_t REQUEST_SIZE = 2048;
constexpr size_t AUTHORIZATION_SIZE = 256;
constexpr size_t CASE_URL_SIZE = 1024;
constexpr long CONNECTOR_TIMEOUT = 60;

int printFailure(const char* message) {
    fprintf(stderr, "%s: %s\n", PROGRAM_NAME, message);
    return 1;
}

[[noreturn]] void failWith(const char* message) {
    printFailure(message);
    exit(1);
}

// Bounded append: text beyond size - 1 bytes is cut.
__attribute__((format(printf, 3, 4))) void appendFormat(char* text, size_t size,
                                                         const char* format, ...) {
    size_t used = strnlen(text, size);
    if (used + 1 >= size) return;
    va_list args;
    va_start(args, format);
    vsnprintf(text + used, size - used, format, args);
    va_end(args);
}

// Wipes a buffer that held key material or credentials when it goes out of scope.
class Wiped {
public:
    Wiped(void* data, size_t size) : data(data), size(size) {}
    ~Wiped() { OPENSSL_cleanse(data, size); }
    Wiped(const Wiped&) = delete;
    Wiped& operator=(const Wiped&) = delete;

private:
    void* data;
    size_t size;
};

// Base64 text -> 16-byte vector + AES-256-CBC ciphertext -> plaintext in output (zeroed, 256
// bytes). Returns 0, or the message that tells why not.
const char* decipherValue(Crypto& crypto, char* text, unsigned char* key, char* output) {
    unsigned char decoded[ENCIPHERED_SIZE] = {};
    unsigned char plain[DECODED_LIMIT] = {};
    Wiped wipeDecoded(decoded, sizeof decoded);
    Wiped wipePlain(plain, sizeof plain);
    int length = 0;
    if (crypto.base64_decode(text, decoded, length) != 0) return _("failed to decode JSON values");
    if (length > DECODED_LIMIT) length = DECODED_LIMIT;
    // Sixteen bytes or fewer hold no ciphertext after the vector.
    if (length <= IV_SIZE) return _("failed to decrypt JSON values");
    int plainLength = crypto.aes_256_decrypt(decoded + IV_SIZE, length - IV_SIZE, key, decoded, plain);
    if (plainLength <= 0) return _("failed to decrypt JSON values");
    size_t n = static_cast<size_t>(plainLength);
    if (n > CONNECTOR_VALUE_SIZE - 1) n = CONNECTOR_VALUE_SIZE - 1;
    memcpy(output, plain, n);
    return nullptr;
}

// Loads an answer as JSON; exits 1 with the document message when it is not.
void loadAnswer(JsonDocument& document, const char* text) {
    if (document.loadDocument(text, strlen(text)) != 0) {
        failWith(_("failed to load the returned JSON document"));
    }
}

// The serialised record, or exit 1 when it cannot be made within the request size.
void serialiseRecord(JsonDocument& record, char* body, size_t size) {
    char* text = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&text, &length);
    if (stream == nullptr) failWith(_("failed to create a JSON document"));
    int result = record.writeDocument(JSON_FORMAT_COMPACT, stream);
    fclose(stream);
    // A record that does not fit is refused rather than sent cut.
    bool fits = result == 0 && length < size;
    if (fits) memcpy(body, text, length + 1);
    free(text);
    if (!fits) failWith(_("failed to create a JSON document"));
}

}  // namespace

int getConnectorDetails(char* authenticationUrl, char* grantType, char* clientId,
                        char* clientSecret, char* userName, char* password) {
    JsonDocument config;
    char configPath[PATH_SIZE];
    if (config.loadDocument(programFile(CONFIG_FILE_NAME, configPath, sizeof configPath)) != 0) {
        return printFailure(_("failed to load the gatr_config file"));
    }
    FtpServer control;
    readControlServer(config, control);
    char url[SERVER_URL_SIZE] = {};
    buildServerFileUrl(control, ".connector", url, sizeof url);

    char text[CONNECTOR_FILE_SIZE] = {};
    Wiped wipeText(text, sizeof text);
    if (!executeCurl(url, CURL_METHOD_DOWNLOAD, 0, static_cast<const char*>(nullptr), nullptr,
                     text, sizeof text, control.useSecure, false, CONNECTOR_TIMEOUT, "gatr",
                     nullptr)) {
        return printFailure(_("failed to retrieve the connector configuration file"));
    }
    JsonDocument connector;
    if (connector.loadDocument(text, strlen(text)) != 0) {
        return printFailure(_("failed to load the returned JSON document"));
    }
    connector.getValue("authentication_url", authenticationUrl, CONNECTOR_URL_SIZE);
    connector.getValue("grant_type", grantType, CONNECTOR_VALUE_SIZE);

    const char* names[] = {"client_id", "client_secret", "username", "password"};
    char* outputs[] = {clientId, clientSecret, userName, password};
    char values[4][ENCIPHERED_SIZE] = {};
    Wiped wipeValues(values, sizeof values);
    for (int i = 0; i < 4; ++i) connector.getValue(names[i], values[i], ENCIPHERED_SIZE);

    unsigned char key[CONNECTOR_KEY_SIZE] = {};
    Wiped wipeKey(key, sizeof key);
    getConnectorKey(key);
    Crypto crypto;
    for (int i = 0; i < 4; ++i) {
        const char* failure = decipherValue(crypto, values[i], key, outputs[i]);
        if (failure != nullptr) return printFailure(failure);
    }
    return 0;
}

void buildCaseDescription(char* text, size_t size, const char* archive, const char* region,
                          const char* serverUrl, const char* caseNumber) {
    snprintf(text, size, _("gatr archive file %s was uploaded to the %s FTP server.\n\nDownload URL: %s/%s_%s"),
             archive, region, serverUrl, caseNumber, archive);
    // Customers download over plain FTP links; the secure scheme is for the upload only.
    str_replace(text, size, "ftps://", "ftp://");
}

void buildSystemBlock(char* text, size_t size) {
    memset(text, 0, size);
    JsonDocument& settings = work::settings;
    appendFormat(text, size, "%-20s %s\n", _("Operating system:"),
                 settings.getValue<char*>("system->operating_system"));
    appendFormat(text, size, "%-20s %s\n", _("Version:"), settings.getValue<char*>("system->version"));
    appendFormat(text, size, "%-20s %s\n", _("Kernel:"), settings.getValue<char*>("system->kernel"));
    appendFormat(text, size, "%-20s %s\n\n", _("Platform:"),
                 settings.getValue<char*>("system->platform"));
}

void buildInstalledBlock(char* text, size_t size) {
    memset(text, 0, size);
    JsonDocument& settings = work::settings;
    appendFormat(text, size, "%s\n", _("BACKUP:"));
    if (settings.getValue<bool>("products->orb->installed")) {
        appendFormat(text, size, "    %s %s\n", "Ironkeep ORB for Linux",
                     settings.getValue<char*>("products->orb->package"));
    }
    if (settings.getValue<bool>("products->thb->installed")) {
        appendFormat(text, size, "    %s %s\n", "Brimwell Tallyhub Service for Linux",
                     settings.getValue<char*>("products->thb->package"));
    }
    appendFormat(text, size, "\n");
    appendFormat(text, size, "%s\n\n", _("CLOUD:"));
    appendFormat(text, size, "%s\n", _("MANAGE:"));
    if (settings.getValue<bool>("products->cmd->installed")) {
        appendFormat(text, size, "    %s %s\n", "Watchpost endpoint",
                     settings.getValue<char*>("products->cmd->package"));
    }
    appendFormat(text, size, "\n");
    appendFormat(text, size, "%s\n\n", _("RECOVERY:"));
    appendFormat(text, size, "%s\n\n", _("REPLICATE:"));
}

void updateSalesforceCase(const char* ftpServerUrl) {
    const char* caseNumber = work::ftpCaseNumber;
    const bool verbose = (work::options & OPT_VERBOSE) != 0;
    printf(_("%s: commencing update of case number %s in the Brimwell Support system\n"),
           PROGRAM_NAME, caseNumber);
    fflush(stdout);

    char authenticationUrl[CONNECTOR_URL_SIZE] = {};
    char grantType[CONNECTOR_VALUE_SIZE] = {};
    char clientId[CONNECTOR_VALUE_SIZE] = {};
    char clientSecret[CONNECTOR_VALUE_SIZE] = {};
    char userName[CONNECTOR_VALUE_SIZE] = {};
    char password[CONNECTOR_VALUE_SIZE] = {};
    Wiped wipeClient(clientId, sizeof clientId);
    Wiped wipeSecret(clientSecret, sizeof clientSecret);
    Wiped wipeUser(userName, sizeof userName);
    Wiped wipePassword(password, sizeof password);
    if (getConnectorDetails(authenticationUrl, grantType, clientId, clientSecret, userName,
                            password) != 0) {
        failWith(_("failed to update the case in the Brimwell Support system"));
    }

    // The values go into the form as they are: the service compares them unencoded, so
    // encoding would change what it checks.
    std::list<std::string> headers = {"Content-Type: application/x-www-form-urlencoded"};
    char form[REQUEST_SIZE] = {};
    Wiped wipeForm(form, sizeof form);
    snprintf(form, sizeof form,
             "grant_type=%s&client_id=%s&client_secret=%s&username=%s&password=%s&scope=",
             grantType, clientId, clientSecret, userName, password);
    char answer[RESPONSE_SIZE] = {};
    Wiped wipeAnswer(answer, sizeof answer);
    // The form carries the client secret and the password: only a peer that proves who it is
    // may have them.
    if (!executeCurl(authenticationUrl, CURL_METHOD_POST, 0, headers, form, answer, sizeof answer,
                     true, verbose, 0, nullptr, nullptr)) {
        char message[512] = {};
        snprintf(message, sizeof message, "%s: %s",
                 _("failed to authenticate with the Brimwell Support system"),
                 _("refer to the gatr_errors.log for details"));
        failWith(message);
    }
    JsonDocument token;
    loadAnswer(token, answer);

    char authorization[AUTHORIZATION_SIZE] = {};
    Wiped wipeAuthorization(authorization, sizeof authorization);
    snprintf(authorization, sizeof authorization, "Authorization: %s %s",
             token.getValue<char*>("token_type"), token.getValue<char*>("access_token"));
    headers.clear();
    headers.push_back(authorization);
    headers.push_back("Content-Type: application/json");
    char caseUrl[CASE_URL_SIZE] = {};
    snprintf(caseUrl, sizeof caseUrl, "%s/services/apexrest/case/gatr/v1/%s",
             token.getValue<char*>("instance_url"), caseNumber);
    token.cleanup();

    char description[CASE_TEXT_SIZE] = {};
    char systemBlock[CASE_TEXT_SIZE] = {};
    char installedBlock[CASE_TEXT_SIZE] = {};
    buildCaseDescription(description, sizeof description,
                         archiveBaseName(work::ftpArchiveFileName), work::ftpRegion, ftpServerUrl,
                         caseNumber);
    buildSystemBlock(systemBlock, sizeof systemBlock);
    buildInstalledBlock(installedBlock, sizeof installedBlock);

    JsonDocument record;
    if (record.createDocument(JSON_OBJECT) != 0 ||
        record.setValue<const char*>("case_number", JSON_STRING, caseNumber) != 0 ||
        record.setValue<const char*>("description", JSON_STRING, description) != 0 ||
        record.setValue<const char*>("system_block", JSON_STRING, systemBlock) != 0 ||
        record.setValue<const char*>("installed_block", JSON_STRING, installedBlock) != 0) {
        failWith(_("failed to create a JSON document"));
    }
    char body[REQUEST_SIZE] = {};
    serialiseRecord(record, body, sizeof body);

    memset(answer, 0, sizeof answer);
    bool posted = executeCurl(caseUrl, CURL_METHOD_POST, 0, headers, body, answer, sizeof answer,
                              true, verbose, 0, nullptr, nullptr);
    // The header list carries the access token: it goes as soon as it is used.
    OPENSSL_cleanse(authorization, sizeof authorization);
    for (std::string& line : headers) OPENSSL_cleanse(&line[0], line.size());
    headers.clear();
    if (!posted) {
        fprintf(stderr,
                _("%s: failed to update the case in the Brimwell Support system : refer to the "
                  "gatr_errors.log for details\n"),
                PROGRAM_NAME);
        exit(1);
    }

    JsonDocument result;
    loadAnswer(result, answer);
    if (result.getValue<int>("status") != 0) {
        // The message stands beside "status": the path continues among the number's siblings.
        const char* message = result.getValue<char*>("status->status_message");
        logError(__FILE__, __LINE__, STATUS_ERROR, _("update of case number %s failed: %s"),
                 caseNumber, message);
        fprintf(stderr, _("%s: update of case number %s failed: %s\n"), PROGRAM_NAME, caseNumber,
                message);
        exit(1);
    }
    logError(__FILE__, __LINE__, STATUS_INFORMATION, _("completed update of case number %s"),
             caseNumber);
    // Deliberately only the program name: the completion text is in the error log.
    printf("%s: %s\n", PROGRAM_NAME, "");
}
