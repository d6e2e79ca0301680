// executeCurl against a loopback HTTP peer, and the bounds of its response buffer.
#include "common/transfer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "error_log_lines.h"
#include "frame/work.h"
#include "loopback_http.h"
#include "test_support.h"

namespace {

using test_support::CapturedErrorLog;
using test_support::errorMessages;
using test_support::errorStatuses;

std::string headerBlock(const std::string& request) {
    return request.substr(0, request.find("\r\n\r\n") + 2);
}

bool hasHeader(const std::string& request, const std::string& line) {
    return headerBlock(request).find("\r\n" + line + "\r\n") != std::string::npos;
}

std::string bodyOf(const std::string& request) {
    return request.substr(request.find("\r\n\r\n") + 4);
}

// Runs the single-header overload with the common arguments of these tests.
bool get(const std::string& url, int method, const char* header, void* data, char* output,
         unsigned long size, int family = 0) {
    return executeCurl(url.c_str(), method, family, header, data, output, size, false, false, 10,
                       nullptr, nullptr);
}

TEST(MwriteHandler, FirstWriteWithoutCapacityAllocatesTheDefault) {
    ResponseBuffer buffer;
    char bytes[] = "abc";
    EXPECT_EQ(3u, mwriteHandler(bytes, 1, 3, &buffer));
    EXPECT_EQ(1024u, buffer.capacity);
    EXPECT_EQ(3u, buffer.used);
    EXPECT_STREQ("abc", buffer.data);
}

TEST(MwriteHandler, WritesAccumulateUpToCapacityLessOne) {
    ResponseBuffer buffer(8);
    char bytes[] = "abcdefgh";
    EXPECT_EQ(4u, mwriteHandler(bytes, 2, 2, &buffer));
    EXPECT_EQ(3u, mwriteHandler(bytes + 4, 3, 1, &buffer));
    EXPECT_EQ(7u, buffer.used);
    EXPECT_STREQ("abcdefg", buffer.data);
    // Nothing more fits: the last byte stays for the terminating zero.
    EXPECT_EQ(static_cast<size_t>(-1), mwriteHandler(bytes, 1, 1, &buffer));
    EXPECT_EQ(7u, buffer.used);
    EXPECT_EQ(0u, mwriteHandler(bytes, 1, 0, &buffer));
}

TEST(MwriteHandler, AWriteLargerThanTheRoomIsRefusedWhole) {
    ResponseBuffer buffer(4);
    char bytes[] = "abcd";
    EXPECT_EQ(static_cast<size_t>(-1), mwriteHandler(bytes, 1, 4, &buffer));
    EXPECT_EQ(0u, buffer.used);
    EXPECT_EQ(3u, mwriteHandler(bytes, 1, 3, &buffer));
}

TEST(ExecuteCurl, GetWithoutHeaderSendsNoContentType) {
    LoopbackHttp peer({LoopbackHttp::answer(200, "{}")});
    char output[64];
    EXPECT_TRUE(get(peer.url("/orb/version/"), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    ASSERT_EQ(1u, peer.requests().size());
    const std::string& request = peer.requests()[0];
    EXPECT_EQ(0u, request.find("GET /orb/version/ HTTP/1.1\r\n"));
    EXPECT_EQ(std::string::npos, request.find("Content-Type")) << request;
    EXPECT_STREQ("{}", output);
}

TEST(ExecuteCurl, GetAndDeleteWithHeaderSendContentTypeFirst) {
    for (int method : {CURL_METHOD_GET, CURL_METHOD_DELETE}) {
        LoopbackHttp peer({LoopbackHttp::answer(200, "")});
        char output[64];
        EXPECT_TRUE(get(peer.url(), method, "Authorization: Token abc", nullptr, output, sizeof output));
        const std::string& request = peer.requests().at(0);
        EXPECT_EQ(0u, request.find(method == CURL_METHOD_GET ? "GET / " : "DELETE / ")) << method;
        size_t type = request.find("\r\nContent-Type: application/json\r\n");
        size_t token = request.find("\r\nAuthorization: Token abc\r\n");
        ASSERT_NE(std::string::npos, type) << method;
        ASSERT_NE(std::string::npos, token) << method;
        EXPECT_LT(type, token) << method;
        // Nothing came back, so nothing is copied out.
        EXPECT_STREQ("", output) << method;
    }
}

TEST(ExecuteCurl, PostAndPutSendTheBodyAsJson) {
    for (int method : {CURL_METHOD_POST, CURL_METHOD_PUT}) {
        LoopbackHttp peer({LoopbackHttp::answer(200, "ok")});
        char body[] = "{\"a\":1}";
        char output[64];
        EXPECT_TRUE(get(peer.url("/x"), method, nullptr, body, output, sizeof output));
        const std::string& request = peer.requests().at(0);
        EXPECT_EQ(0u, request.find(method == CURL_METHOD_POST ? "POST /x " : "PUT /x ")) << method;
        EXPECT_TRUE(hasHeader(request, "Content-Type: application/json")) << request;
        EXPECT_EQ("{\"a\":1}", bodyOf(request)) << method;
        EXPECT_STREQ("ok", output);
    }
}

TEST(ExecuteCurl, HeaderListIsSentInOrderWithoutAddedContentType) {
    LoopbackHttp peer({LoopbackHttp::answer(200, "done")});
    std::list<std::string> headers = {"Authorization: Bearer t0k", "X-Second: 2"};
    char output[64];
    EXPECT_TRUE(executeCurl(peer.url("/case").c_str(), CURL_METHOD_GET, 0, headers, nullptr, output,
                            sizeof output, false, false, 10, nullptr, nullptr));
    const std::string& request = peer.requests().at(0);
    size_t first = request.find("\r\nAuthorization: Bearer t0k\r\n");
    size_t second = request.find("\r\nX-Second: 2\r\n");
    ASSERT_NE(std::string::npos, first);
    ASSERT_NE(std::string::npos, second);
    EXPECT_LT(first, second);
    EXPECT_EQ(std::string::npos, request.find("Content-Type")) << request;
}

TEST(ExecuteCurl, VerboseTraceShowsTheExchangeButNoCredential) {
    struct Case {
        const char* name;
        const char* header;
        const char* shown;
    };
    const Case cases[] = {
        {"bearer token", "Authorization: Bearer 00D5e0!AQ4.t0ken",
         "Authorization: Bearer ********"},
        {"lower-case name", "authorization: Token 5ecret-admin", "authorization: Token ********"},
        {"value of one word", "Authorization: 5ecretWord", "Authorization: ********"},
    };
    for (const Case& c : cases) {
        LoopbackHttp peer({LoopbackHttp::answer(200, "{\"status\": 0}")});
        std::list<std::string> headers = {c.header, "X-After: kept"};
        char output[64];
        testing::internal::CaptureStderr();
        bool done = executeCurl(peer.url("/case").c_str(), CURL_METHOD_POST, 0, headers,
                                const_cast<char*>("{}"), output, sizeof output, false, true, 10,
                                nullptr, nullptr);
        std::string trace = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(done) << c.name;
        EXPECT_TRUE(hasHeader(peer.requests().at(0), c.header)) << c.name;
        EXPECT_NE(std::string::npos, trace.find("> POST /case HTTP/1.1\r\n")) << c.name << trace;
        std::string shown = "\r\n" + std::string(c.shown) + "\r\nX-After: kept\r\n";
        EXPECT_NE(std::string::npos, trace.find(shown)) << c.name << trace;
        EXPECT_NE(std::string::npos, trace.find("< HTTP/1.1 200 X\r\n")) << c.name << trace;
        std::string secret = std::string(c.header).substr(std::string(c.header).rfind(' ') + 1);
        EXPECT_EQ(std::string::npos, trace.find(secret)) << c.name << trace;
    }
}

TEST(ExecuteCurl, HeaderListPostCarriesTheFormBodyUnchanged) {
    LoopbackHttp peer({LoopbackHttp::answer(200, "{}")});
    std::list<std::string> headers = {"Content-Type: application/x-www-form-urlencoded"};
    char body[] = "grant_type=password&client_id=a+b&scope=";
    char output[64];
    EXPECT_TRUE(executeCurl(peer.url("/token").c_str(), CURL_METHOD_POST, 0, headers, body, output,
                            sizeof output, false, false, 10, nullptr, nullptr));
    const std::string& request = peer.requests().at(0);
    EXPECT_EQ(body, bodyOf(request));
    EXPECT_TRUE(hasHeader(request, "Content-Type: application/x-www-form-urlencoded"));
    EXPECT_FALSE(hasHeader(request, "Content-Type: application/json"));
}

TEST(ExecuteCurl, AnswerOfOutputSizeLessOneFits) {
    const std::string body(63, 'x');
    LoopbackHttp peer({LoopbackHttp::answer(200, body)});
    char output[64];
    CapturedErrorLog log;
    EXPECT_TRUE(get(peer.url(), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    EXPECT_EQ(body, output);
    EXPECT_TRUE(errorMessages(log.text()).empty());
}

TEST(ExecuteCurl, AnswerOneByteTooLongAbortsTheTransfer) {
    LoopbackHttp peer({LoopbackHttp::answer(200, std::string(64, 'x'))});
    char output[64];
    CapturedErrorLog log;
    EXPECT_FALSE(get(peer.url("/big"), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    EXPECT_STREQ("Failed writing received data to disk/application (23)", output);
    ASSERT_EQ(1u, errorMessages(log.text()).size());
    EXPECT_EQ("call to curl_easy_perform() failed: (23) Failed writing received data to disk/application : " +
                  peer.url("/big"),
              errorMessages(log.text())[0]);
    EXPECT_EQ("ERROR", errorStatuses(log.text())[0]);
}

TEST(ExecuteCurl, OutputSizeZeroTakes2048BytesButCopiesNothing) {
    const std::string body(2047, 'y');
    LoopbackHttp peer({LoopbackHttp::answer(200, body), LoopbackHttp::answer(200, body + "y")});
    char output[4] = {'a', 'b', 'c', 'd'};
    CapturedErrorLog log;
    EXPECT_TRUE(get(peer.url(), CURL_METHOD_GET, nullptr, nullptr, output, 0));
    EXPECT_EQ(0, memcmp(output, "abcd", 4));
    EXPECT_FALSE(get(peer.url(), CURL_METHOD_GET, nullptr, nullptr, nullptr, 0));
}

TEST(ExecuteCurl, UnexpectedStatusIsLoggedWithTheAnswer) {
    LoopbackHttp peer({LoopbackHttp::answer(404, "no such thing"), LoopbackHttp::answer(500, "")});
    char output[64];
    CapturedErrorLog log;
    EXPECT_FALSE(get(peer.url("/a"), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    EXPECT_STREQ("no such thing", output);
    EXPECT_FALSE(get(peer.url("/b"), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    ASSERT_EQ(2u, errorMessages(log.text()).size());
    EXPECT_EQ(peer.url("/a") + " returned exit code: (404) no such thing", errorMessages(log.text())[0]);
    // An empty answer is shown the way the C library shows a null text.
    EXPECT_EQ(peer.url("/b") + " returned exit code: (500) (null)", errorMessages(log.text())[1]);
}

TEST(ExecuteCurl, RefusedConnectionIsLoggedAndDescribedInTheOutput) {
    int port = 0;
    {
        LoopbackHttp closed({});
        port = std::stoi(closed.url().substr(17));
    }
    std::string url = "http://127.0.0.1:" + std::to_string(port) + "/";
    char output[64];
    CapturedErrorLog log;
    EXPECT_FALSE(get(url, CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    EXPECT_STREQ("Couldn't connect to server (7)", output);
    ASSERT_EQ(1u, errorMessages(log.text()).size());
    EXPECT_EQ("call to curl_easy_perform() failed: (7) Couldn't connect to server : " + url,
              errorMessages(log.text())[0]);
}

TEST(ExecuteCurl, FailureTextIsCutToTheOutputSize) {
    char output[8];
    CapturedErrorLog log;
    EXPECT_FALSE(get("http://127.0.0.1:1/", CURL_METHOD_GET, nullptr, nullptr, output, sizeof output));
    EXPECT_STREQ("Couldn'", output);
}

TEST(ExecuteCurl, UrlOfAnotherSchemeExpectsStatusZero) {
    // Neither "http" nor "ftp": a failed transfer leaves status 0, which is what such a URL
    // expects, so the call reports success.
    CapturedErrorLog log;
    char output[128];
    EXPECT_TRUE(get("file:///nonexistent/gatr/none", CURL_METHOD_GET, nullptr, nullptr, output,
                    sizeof output));
    EXPECT_EQ(1u, errorMessages(log.text()).size());
    EXPECT_EQ(0u, std::string(output).find("Couldn't read a file:// file (37)")) << output;
}

TEST(ExecuteCurl, DownloadToFileWritesTheFileAndAStatisticsLine) {
    const std::string body(12345, 'z');
    LoopbackHttp peer({LoopbackHttp::answer(200, body)});
    char* data = nullptr;
    size_t size = 0;
    FILE* file = open_memstream(&data, &size);
    char output[128];
    char saved = work::thousandsSeparator;
    work::thousandsSeparator = ',';
    EXPECT_TRUE(get(peer.url("/gatr.tar.gz"), CURL_METHOD_DOWNLOAD, nullptr, file, output, sizeof output));
    work::thousandsSeparator = saved;
    fclose(file);
    EXPECT_EQ(body, std::string(data, size));
    free(data);
    EXPECT_TRUE(std::regex_match(output, std::regex(R"(received 12,345 bytes in \d+\.\d{3} seconds \([\d,]+\.\d\d KB/s\))")))
        << output;
}

TEST(ExecuteCurl, DownloadWithoutFileKeepsTheAnswerInMemory) {
    LoopbackHttp peer({LoopbackHttp::answer(200, "2.3.3")});
    char output[16];
    EXPECT_TRUE(get(peer.url("/.control"), CURL_METHOD_DOWNLOAD, nullptr, nullptr, output, sizeof output));
    EXPECT_STREQ("2.3.3", output);
}

TEST(ExecuteCurl, UploadSendsTheFileAndAStatisticsLine) {
    // An upload over HTTP is a PUT of the file's bytes; the peer answers as it is told.
    LoopbackHttp peer({LoopbackHttp::answer(200, "")});
    char text[] = "archive bytes";
    FILE* file = fmemopen(text, strlen(text), "rb");
    char output[128];
    EXPECT_TRUE(get(peer.url("/up"), CURL_METHOD_UPLOAD, "X-Ignored: 1", file, output, sizeof output));
    fclose(file);
    const std::string& request = peer.requests().at(0);
    EXPECT_EQ(0u, request.find("PUT /up "));
    // Uploads carry no header list, whatever header is given.
    EXPECT_EQ(std::string::npos, request.find("X-Ignored")) << request;
    EXPECT_NE(std::string::npos, request.find("archive bytes"));
    // The count includes the chunk framing of an upload of unknown size.
    EXPECT_TRUE(std::regex_match(output, std::regex(R"(sent \d+ bytes in \d+\.\d{3} seconds \(\d+\.\d\d KB/s\))")))
        << output;
}

TEST(ExecuteCurl, AddressFamilyRestrictsResolution) {
    LoopbackHttp peer({LoopbackHttp::answer(200, "v4")});
    char output[16];
    CapturedErrorLog log;
    // An IPv4 literal cannot be reached when only IPv6 is allowed.
    EXPECT_FALSE(get(peer.url(), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output, AF_INET6));
    EXPECT_EQ(1u, errorMessages(log.text()).size());
    EXPECT_TRUE(get(peer.url(), CURL_METHOD_GET, nullptr, nullptr, output, sizeof output, AF_INET));
    EXPECT_STREQ("v4", output);
}

}  // namespace
