// The one transfer primitive for HTTP(S) and FTP(S), on libcurl's easy interface.
#pragma once

#include <cstddef>
#include <list>
#include <string>

// Method codes of executeCurl.
enum : int {
    CURL_METHOD_GET = 0,
    CURL_METHOD_POST = 1,
    CURL_METHOD_PUT = 2,
    CURL_METHOD_DELETE = 3,
    CURL_METHOD_UPLOAD = 4,
    CURL_METHOD_DOWNLOAD = 5
};

/// One complete transfer on a fresh handle, with an optional single extra header line.
/// Methods 0 GET, 1 POST and 2 PUT (data: NUL-terminated body), 3 DELETE, 4 upload (data: open
/// FILE*), 5 download (data: open FILE*, or null to keep the answer in memory); any other value
/// is a plain GET. family 2 or 10 restricts name resolution to IPv4 or IPv6. For methods 0 to
/// 3 "Content-Type: application/json" precedes the extra header (GET and DELETE send a list
/// only when an extra header is given); methods 4 and 5 send no header list. output (zeroed
/// first, at most outputSize - 1 bytes and always terminated) receives the answer, or for
/// uploads and file downloads the "sent/received ... bytes" statistics line, or on a failed
/// transfer "<libcurl error text> (<code>)". Returns true when the status is the one the URL
/// calls for: 200 for "http...", 226 for "ftp...", 0 for anything else (so a failed transfer
/// to such a URL returns true). A failure to start, a failed transfer and an unexpected status
/// are each logged once at ERROR. Never exits.
bool executeCurl(const char* url, int method, int family, const char* header, void* data,
                 char* output, unsigned long outputSize, bool verify, bool verbose, long timeout,
                 const char* userName, const char* password);
/// The same with a list of header lines sent as given, in list order, and nothing else (no
/// Content-Type is added); an empty list sends none.
bool executeCurl(const char* url, int method, int family, std::list<std::string>& headers,
                 void* data, char* output, unsigned long outputSize, bool verify, bool verbose,
                 long timeout, const char* userName, const char* password);

/// The response buffer of one transfer: a fixed capacity chosen before the transfer starts,
/// allocated on the first write and never grown; wiped and freed with the owner (answers can
/// carry access tokens).
struct ResponseBuffer {
    char* data = nullptr;
    unsigned long capacity = 0;
    unsigned long used = 0;

    ResponseBuffer() = default;
    explicit ResponseBuffer(unsigned long bytes) : capacity(bytes) {}
    ~ResponseBuffer();
    ResponseBuffer(const ResponseBuffer&) = delete;
    ResponseBuffer& operator=(const ResponseBuffer&) = delete;
};

/// libcurl write callback: appends to the fixed-capacity response buffer; a response that does
/// not fit aborts the transfer.
/// `buffer` is a ResponseBuffer. Returns the bytes taken, or (size_t)-1 to abort: when the
/// bytes held plus those offered would leave no room for a terminating zero, or when the
/// first allocation fails. A capacity of 0 becomes 1024 on the first write.
size_t mwriteHandler(char* data, size_t size, size_t count, void* buffer);
