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

/// One transfer with an optional single extra header line; true when the expected status
/// (200 for HTTP(S), 226 for FTP(S)) came back. Failures are logged.
bool executeCurl(const char* url, int method, int family, const char* header, void* data,
                 char* output, unsigned long outputSize, bool verify, bool verbose, long timeout,
                 const char* userName, const char* password);
/// The same with a list of header lines.
bool executeCurl(const char* url, int method, int family, std::list<std::string>& headers,
                 void* data, char* output, unsigned long outputSize, bool verify, bool verbose,
                 long timeout, const char* userName, const char* password);

/// libcurl write callback: appends to the fixed-capacity response buffer; a response that does
/// not fit aborts the transfer.
size_t mwriteHandler(char* data, size_t size, size_t count, void* buffer);
