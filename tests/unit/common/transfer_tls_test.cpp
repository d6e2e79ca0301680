// The TLS verification switch of executeCurl, against openssl s_server with a self-signed
// certificate on loopback.
#include "common/transfer.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "error_log_lines.h"
#include "test_support.h"

namespace {

using test_support::CapturedErrorLog;
using test_support::errorMessages;

int freePort() {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    getsockname(s, reinterpret_cast<sockaddr*>(&address), &length);
    close(s);
    return ntohs(address.sin_port);
}

bool accepts(int port) {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ok = connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(s);
    return ok;
}

// openssl s_server -www answers every request with a 200 status page.
class TlsPeer {
public:
    TlsPeer() {
        std::string cert = folder.file("cert.pem");
        std::string key = folder.file("key.pem");
        std::string make = "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=localhost "
                           "-keyout " + key + " -out " + cert + " 2>/dev/null";
        if (folder.path().empty() || system(make.c_str()) != 0) return;
        port = freePort();
        std::string accept = "127.0.0.1:" + std::to_string(port);
        pid = fork();
        if (pid == 0) {
            if (freopen("/dev/null", "w", stdout) == nullptr ||
                freopen("/dev/null", "w", stderr) == nullptr) {
                _exit(127);
            }
            execlp("openssl", "openssl", "s_server", "-accept", accept.c_str(), "-cert", cert.c_str(),
                   "-key", key.c_str(), "-www", static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0; i < 100 && !accepts(port); ++i) usleep(50000);
    }
    ~TlsPeer() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    bool ready() const { return pid > 0 && accepts(port); }
    std::string url() const { return "https://127.0.0.1:" + std::to_string(port) + "/"; }

private:
    test_support::TempDir folder;
    int port = 0;
    pid_t pid = -1;
};

TEST(ExecuteCurlTls, SelfSignedCertificateIsAcceptedWithoutVerification) {
    TlsPeer peer;
    ASSERT_TRUE(peer.ready());
    char output[16384];
    CapturedErrorLog log;
    EXPECT_TRUE(executeCurl(peer.url().c_str(), CURL_METHOD_GET, 0, static_cast<const char*>(nullptr),
                            nullptr, output, sizeof output, false, false, 10, nullptr, nullptr));
    EXPECT_NE(nullptr, strstr(output, "s_server")) << output;
    EXPECT_TRUE(errorMessages(log.text()).empty());
}

TEST(ExecuteCurlTls, SelfSignedCertificateIsRefusedWithVerification) {
    TlsPeer peer;
    ASSERT_TRUE(peer.ready());
    char output[256];
    CapturedErrorLog log;
    EXPECT_FALSE(executeCurl(peer.url().c_str(), CURL_METHOD_GET, 0, static_cast<const char*>(nullptr),
                             nullptr, output, sizeof output, true, false, 10, nullptr, nullptr));
    EXPECT_STREQ("SSL peer certificate or SSH remote key was not OK (60)", output);
    ASSERT_EQ(1u, errorMessages(log.text()).size());
    EXPECT_EQ("call to curl_easy_perform() failed: (60) SSL peer certificate or SSH remote key was "
              "not OK : " + peer.url(),
              errorMessages(log.text())[0]);
}

}  // namespace
