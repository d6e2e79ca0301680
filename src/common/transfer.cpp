// executeCurl: every HTTP(S) and FTP(S) transfer of the program, one fresh easy handle each.
#include "common/transfer.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <strings.h>
#include <sys/socket.h>

#include <curl/curl.h>
#include <openssl/crypto.h>

#include "common/string_helpers.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

// Callers that give no output size still get a bounded answer.
constexpr unsigned long DEFAULT_RESPONSE_SIZE = 2048;
constexpr unsigned long FIRST_WRITE_SIZE = 1024;
constexpr size_t ERROR_TEXT_SIZE = 256;
constexpr size_t STATISTIC_SIZE = 64;
constexpr size_t STATISTICS_LINE_SIZE = 2048;

// libcurl's global state is brought up and torn down around every single transfer, so that a
// call leaves nothing behind.
class CurlGlobal {
public:
    CurlGlobal() { curl_global_init(CURL_GLOBAL_ALL); }
    ~CurlGlobal() { curl_global_cleanup(); }
    CurlGlobal(const CurlGlobal&) = delete;
    CurlGlobal& operator=(const CurlGlobal&) = delete;
};

class CurlHandle {
public:
    CurlHandle() : handle(curl_easy_init()) {}
    ~CurlHandle() {
        if (handle != nullptr) curl_easy_cleanup(handle);
    }
    CurlHandle(const CurlHandle&) = delete;
    CurlHandle& operator=(const CurlHandle&) = delete;
    CURL* get() const { return handle; }

private:
    CURL* handle;
};

class HeaderList {
public:
    HeaderList() = default;
    // Header lines can carry an access token: none is left behind in freed memory.
    ~HeaderList() {
        for (curl_slist* line = list; line != nullptr; line = line->next) {
            OPENSSL_cleanse(line->data, strlen(line->data));
        }
        curl_slist_free_all(list);
    }
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    // A line that cannot be added is left out; the list made so far stays intact.
    void append(const char* line) {
        curl_slist* longer = curl_slist_append(list, line);
        if (longer != nullptr) list = longer;
    }
    curl_slist* get() const { return list; }

private:
    curl_slist* list = nullptr;
};

long expectedStatus(const char* url) {
    if (strncmp(url, "http", 4) == 0) return 200;
    if (strncmp(url, "ftp", 3) == 0) return 226;
    return 0;
}

// An upload without a file to read from sends nothing rather than libcurl's default source,
// standard input, which could block the program.
size_t readNothing(char*, size_t, size_t, void*) { return 0; }

void copyBounded(char* output, unsigned long outputSize, const char* text, unsigned long length) {
    if (output == nullptr || outputSize == 0) return;
    unsigned long n = length < outputSize - 1 ? length : outputSize - 1;
    memcpy(output, text, n);
    output[n] = '\0';
}

// "sent|received <bytes> bytes in <seconds> seconds (<KiB/s> KB/s)", each number grouped.
void writeStatistics(CURL* curl, bool upload, char* output, unsigned long outputSize) {
    curl_off_t bytes = 0;
    curl_off_t speed = 0;
    double seconds = 0.0;
    curl_easy_getinfo(curl, upload ? CURLINFO_SIZE_UPLOAD_T : CURLINFO_SIZE_DOWNLOAD_T, &bytes);
    curl_easy_getinfo(curl, CURLINFO_TOTAL_TIME, &seconds);
    curl_easy_getinfo(curl, upload ? CURLINFO_SPEED_UPLOAD_T : CURLINFO_SPEED_DOWNLOAD_T, &speed);

    char size[STATISTIC_SIZE] = {};
    char time[STATISTIC_SIZE] = {};
    char rate[STATISTIC_SIZE] = {};
    snprintf(size, sizeof size, "%0.0f", static_cast<double>(bytes));
    snprintf(time, sizeof time, "%0.3f", seconds);
    snprintf(rate, sizeof rate, "%0.2f", static_cast<double>(speed) * 0.0009765625);
    for (char* number : {size, time, rate}) {
        if (number[0] != '\0') format_number(number, STATISTIC_SIZE);
    }

    char line[STATISTICS_LINE_SIZE] = {};
    snprintf(line, sizeof line,
             upload ? _("sent %s bytes in %s seconds (%s KB/s)")
                    : _("received %s bytes in %s seconds (%s KB/s)"),
             size, time, rate);
    copyBounded(output, outputSize, line, strlen(line));
}

// Where the credential of an outgoing Authorization header begins: after its scheme word, so
// a reader still sees which kind went; null for any other line.
const char* findCredential(const char* line, const char* lineEnd) {
    static const char AUTHORIZATION[] = "Authorization:";
    const size_t nameLength = sizeof AUTHORIZATION - 1;
    if (static_cast<size_t>(lineEnd - line) < nameLength ||
        strncasecmp(line, AUTHORIZATION, nameLength) != 0) {
        return nullptr;
    }
    const char* scheme = line + nameLength;
    while (scheme < lineEnd && *scheme == ' ') ++scheme;
    const char* schemeEnd = scheme;
    while (schemeEnd < lineEnd && *schemeEnd != ' ') ++schemeEnd;
    // A value of one word is all credential.
    return schemeEnd < lineEnd ? schemeEnd + 1 : scheme;
}

// Writes one block of outgoing header lines with each credential replaced by asterisks.
void writeMaskedHeaders(const char* data, size_t size, FILE* stream) {
    const char* end = data + size;
    while (data < end) {
        const char* newline = static_cast<const char*>(memchr(data, '\n', end - data));
        const char* next = newline != nullptr ? newline + 1 : end;
        const char* lineEnd = next;
        while (lineEnd > data && (lineEnd[-1] == '\n' || lineEnd[-1] == '\r')) --lineEnd;
        const char* credential = findCredential(data, lineEnd);
        if (credential == nullptr || credential == lineEnd) {
            fwrite(data, 1, next - data, stream);
        } else {
            fwrite(data, 1, credential - data, stream);
            fputs("********", stream);
            fwrite(lineEnd, 1, next - lineEnd, stream);
        }
        data = next;
    }
}

// The verbose trace as libcurl writes it by default (text, headers in, headers out, each block
// behind its two-character mark), except that no credential of an Authorization header reaches
// the terminal: verbose output is what customers paste into support cases.
int traceTransfer(CURL*, curl_infotype type, char* data, size_t size, void*) {
    switch (type) {
    case CURLINFO_TEXT:
        fputs("* ", stderr);
        fwrite(data, 1, size, stderr);
        break;
    case CURLINFO_HEADER_IN:
        fputs("< ", stderr);
        fwrite(data, 1, size, stderr);
        break;
    case CURLINFO_HEADER_OUT:
        fputs("> ", stderr);
        writeMaskedHeaders(data, size, stderr);
        break;
    default:
        break;
    }
    return 0;
}

void setMethod(CURL* curl, int method, void* data, const char* userName, const char* password) {
    // A body the caller left out is sent empty: libcurl would otherwise read it from stdin.
    const char* body = data != nullptr ? static_cast<const char*>(data) : "";
    switch (method) {
    case CURL_METHOD_POST:
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body);
        return;
    case CURL_METHOD_PUT:
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "PUT");
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body);
        return;
    case CURL_METHOD_DELETE:
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "DELETE");
        return;
    case CURL_METHOD_UPLOAD:
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
        if (data != nullptr) {
            curl_easy_setopt(curl, CURLOPT_READDATA, data);
        } else {
            curl_easy_setopt(curl, CURLOPT_READFUNCTION, readNothing);
        }
        break;
    case CURL_METHOD_DOWNLOAD:
        if (data != nullptr) {
            curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, nullptr);
            curl_easy_setopt(curl, CURLOPT_WRITEDATA, data);
        }
        break;
    default:
        return;
    }
    if (userName != nullptr) curl_easy_setopt(curl, CURLOPT_USERNAME, userName);
    if (password != nullptr) curl_easy_setopt(curl, CURLOPT_PASSWORD, password);
}

/// Only these schemes leave the machine: a "file://" or "dict://" URL in a configuration file must
/// never turn an upload into a write to a local file or another protocol.
bool isSupportedScheme(const char* url) {
    for (const char* scheme : {"http://", "https://", "ftp://", "ftps://"}) {
        if (strncasecmp(url, scheme, strlen(scheme)) == 0) return true;
    }
    return false;
}

void refuseScheme(const char* url, char* output, unsigned long outputSize) {
    logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: (%lu) %s : %s"),
             "curl_easy_perform()", static_cast<unsigned long>(CURLE_UNSUPPORTED_PROTOCOL),
             curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL), url);
    if (output != nullptr && outputSize != 0) {
        snprintf(output, outputSize, "%s (%lu)", curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL),
                 static_cast<unsigned long>(CURLE_UNSUPPORTED_PROTOCOL));
    }
}

void limitProtocols(CURL* curl) {
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https,ftp,ftps");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https,ftp,ftps");
#else
    long allowed = CURLPROTO_HTTP | CURLPROTO_HTTPS | CURLPROTO_FTP | CURLPROTO_FTPS;
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS, allowed);
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS, allowed);
#endif
}

bool transfer(const char* url, int method, int family, const HeaderList& headers, void* data,
              char* output, unsigned long outputSize, bool verify, bool verbose, long timeout,
              const char* userName, const char* password) {
    if (output != nullptr) memset(output, 0, outputSize);
    ResponseBuffer response(outputSize != 0 ? outputSize : DEFAULT_RESPONSE_SIZE);
    const long expected = expectedStatus(url);
    long status = 0;
    if (!isSupportedScheme(url)) {
        refuseScheme(url, output, outputSize);
        return false;
    }

    CurlGlobal global;
    CurlHandle handle;
    CURL* curl = handle.get();
    if (curl == nullptr) {
        logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: (%lu) %s"),
                 "curl_easy_init()", 0UL, "n/a");
        return status == expected;
    }

    char errorText[ERROR_TEXT_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, mwriteHandler);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response);
    limitProtocols(curl);
    // The backup product's local service is asked directly: its admin token must never pass
    // through a proxy that the environment names.
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "localhost,127.0.0.1,::1");

    if (strncmp(url, "https:", 6) == 0 || strncmp(url, "ftps:", 5) == 0) {
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, verify ? 2L : 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, verify ? 1L : 0L);
    }
    setMethod(curl, method, data, userName, password);
    if (headers.get() != nullptr) curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());

    curl_easy_setopt(curl, CURLOPT_VERBOSE, verbose ? 1L : 0L);
    if (verbose) curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, traceTransfer);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, timeout);
    // A peer that stops moving bytes is given up; a slow line that keeps moving is not.
    long stall = work::limits.transferStallSeconds;
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, stall);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, stall);
    if (family == AF_INET) {
        curl_easy_setopt(curl, CURLOPT_IPRESOLVE, CURL_IPRESOLVE_V4);
    } else if (family == AF_INET6) {
        curl_easy_setopt(curl, CURLOPT_IPRESOLVE, CURL_IPRESOLVE_V6);
    }

    CURLcode result = curl_easy_perform(curl);
    if (result == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (method == CURL_METHOD_UPLOAD) {
            writeStatistics(curl, true, output, outputSize);
        } else if (method == CURL_METHOD_DOWNLOAD && data != nullptr) {
            writeStatistics(curl, false, output, outputSize);
        } else if (response.used > 0) {
            copyBounded(output, outputSize, response.data, response.used);
        }
        if (status != expected) {
            logError(__FILE__, __LINE__, STATUS_ERROR, _("%s returned exit code: (%ld) %s"), url,
                     status, response.data != nullptr ? response.data : "(null)");
        }
    } else {
        const char* reason = curl_easy_strerror(result);
        logError(__FILE__, __LINE__, STATUS_ERROR, _("call to %s failed: (%lu) %s : %s"),
                 "curl_easy_perform()", static_cast<unsigned long>(result), reason, url);
        if (output != nullptr && outputSize != 0) {
            snprintf(output, outputSize, "%s (%lu)", reason, static_cast<unsigned long>(result));
        }
    }
    return status == expected;
}

}  // namespace

ResponseBuffer::~ResponseBuffer() {
    if (data != nullptr) OPENSSL_cleanse(data, capacity);
    delete[] data;
}

size_t mwriteHandler(char* data, size_t size, size_t count, void* buffer) {
    auto* response = static_cast<ResponseBuffer*>(buffer);
    const size_t offered = size * count;
    if (response->data == nullptr) {
        if (response->capacity == 0) response->capacity = FIRST_WRITE_SIZE;
        response->data = new (std::nothrow) char[response->capacity];
        if (response->data == nullptr) return static_cast<size_t>(-1);
        memset(response->data, 0, response->capacity);
        response->used = 0;
    }
    // The buffer never grows: callers size it for the largest answer they accept, and one byte
    // stays free for the terminating zero.
    if (response->used + offered > response->capacity - 1) return static_cast<size_t>(-1);
    memcpy(response->data + response->used, data, offered);
    response->used += offered;
    return offered;
}

bool executeCurl(const char* url, int method, int family, const char* header, void* data,
                 char* output, unsigned long outputSize, bool verify, bool verbose, long timeout,
                 const char* userName, const char* password) {
    HeaderList headers;
    bool withBody = method == CURL_METHOD_POST || method == CURL_METHOD_PUT;
    bool plain = method == CURL_METHOD_GET || method == CURL_METHOD_DELETE;
    if (withBody || (plain && header != nullptr)) {
        headers.append("Content-Type: application/json");
        if (header != nullptr) headers.append(header);
    }
    return transfer(url, method, family, headers, data, output, outputSize, verify, verbose,
                    timeout, userName, password);
}

bool executeCurl(const char* url, int method, int family, std::list<std::string>& headers,
                 void* data, char* output, unsigned long outputSize, bool verify, bool verbose,
                 long timeout, const char* userName, const char* password) {
    HeaderList list;
    for (const std::string& line : headers) list.append(line.c_str());
    return transfer(url, method, family, list, data, output, outputSize, verify, verbose, timeout,
                    userName, password);
}
