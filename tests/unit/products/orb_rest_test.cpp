// The backup product's REST client: URLs, the failure line, the time limit, the debug-mode
// files, and that the admin token never reaches a log.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "orb_test_support.h"
#include "products/orb_rest.h"

namespace {

using orbtest::contains;
using orbtest::ErrorLog;
using orbtest::MainLog;
using orbtest::TempFolder;

constexpr int kNoService = 1;
const char* const kFailureLine =
    "    failed to retrieve data - refer to the gatr_errors.log for details\n\n";

TEST(OrbRest, EndpointUrlsCarryThePortAndTheApiVersion) {
    struct Case {
        const OrbEndpoint* endpoint;
        const char* want;
    };
    const Case cases[] = {
        {&ORB_VERSION_ENDPOINT, "https://localhost:13581/orb/version/"},
        {&ORB_NOTIFY_ENDPOINT, "https://localhost:13581/orb/v2.1/notify/"},
        {&ORB_SMTP_ENDPOINT, "https://localhost:13581/orb/v2.1/smtp/"},
        {&ORB_SYSTEM_ENDPOINT, "https://localhost:13581/orb/v2.1/system/"},
        {&ORB_VOLUME_ENDPOINT, "https://localhost:13581/orb/v2.1/volume/"},
        {&ORB_DESTINATION_ENDPOINT, "https://localhost:13581/orb/v2.1/destination/"},
        {&ORB_BACKUP_ENDPOINT, "https://localhost:13581/orb/v2.1/backup/"},
        {&ORB_THREADS_ENDPOINT, "https://localhost:13581/orb/threads/"},
    };
    for (const Case& c : cases) {
        char url[1024];
        EXPECT_STREQ(c.want, formatOrbUrl(url, sizeof url, *c.endpoint, 13581, "v2.1")) << c.want;
    }
    char url[1024];
    EXPECT_STREQ("https://localhost:0/orb//backup/",
                 formatOrbUrl(url, sizeof url, ORB_BACKUP_ENDPOINT, 0, ""));
    char tiny[24];
    EXPECT_STREQ("https://localhost:13581", formatOrbUrl(tiny, sizeof tiny, ORB_NOTIFY_ENDPOINT,
                                                         13581, "v2.1"));
}

TEST(OrbRest, FailedTransferWritesTheFailureLineAndNeverTheToken) {
    MainLog log;
    ErrorLog errors;
    JsonDocument document;
    EXPECT_FALSE(fetchOrbDocument(ORB_NOTIFY_ENDPOINT, kNoService, "S3cr3t-admin-token", "v1",
                                  document));
    EXPECT_EQ(kFailureLine, log.text());
    EXPECT_FALSE(document.isValid());
    EXPECT_EQ(std::string::npos, errors.text().find("S3cr3t-admin-token"));
}

TEST(OrbRest, UnparsableAnswerWritesTheFailureLine) {
    for (const char* answer : {"", "not json", "{\"a\":", "<html></html>"}) {
        MainLog log;
        ErrorLog errors;
        JsonDocument document;
        EXPECT_FALSE(parseOrbAnswer(answer, document)) << answer;
        EXPECT_EQ(kFailureLine, log.text()) << answer;
    }
    MainLog log;
    JsonDocument document;
    EXPECT_TRUE(parseOrbAnswer("[{\"uuid\":\"x\"}]", document));
    EXPECT_EQ("", log.text());
}

// A peer that completes the connection and then says nothing: only the time limit ends the
// request. The peer hangs up by itself after ten seconds, so a request made without a limit
// fails this test (wrong reason, too late) instead of hanging the suite.
TEST(OrbRest, SilentServiceIsGivenUpAfterTheTimeLimit) {
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, listen(listener, 4));
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    char url[1024];
    formatOrbUrl(url, sizeof url, ORB_THREADS_ENDPOINT, ntohs(address.sin_port), nullptr);

    std::promise<void> finished;
    std::future<void> done = finished.get_future();
    std::thread silent([&] {
        int peer = accept(listener, nullptr, nullptr);
        done.wait_for(std::chrono::seconds(10));
        if (peer >= 0) close(peer);
    });
    ErrorLog errors;
    char answer[ORB_ANSWER_SIZE];
    auto start = std::chrono::steady_clock::now();
    bool answered = requestOrb(url, "t", answer, sizeof answer, 1);
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    finished.set_value();
    shutdown(listener, SHUT_RDWR);  // wakes the peer if the request never connected
    silent.join();
    close(listener);

    EXPECT_FALSE(answered);
    // libcurl's own code for a transfer ended by its time limit.
    std::string reason = answer;
    EXPECT_EQ(" (28)", reason.substr(reason.size() < 5 ? 0 : reason.size() - 5)) << reason;
    EXPECT_GE(seconds, 0.9) << "given up before the one-second limit";
    EXPECT_LT(seconds, 8.0) << "the one-second limit was not applied";
    EXPECT_EQ(60, ORB_REST_TIME_LIMIT);
}

class OrbRestDebug : public ::testing::Test {
protected:
    void TearDown() override { work::hasOrbDebugOn = false; }
    TempFolder output;
};

TEST_F(OrbRestDebug, AnswerIsKeptPrettyInTheLogsFolderOnlyInDebugMode) {
    orbtest::OutputFolder folder(output.path());
    ErrorLog errors;
    JsonDocument document;
    orbtest::load(document, R"([{"uuid":"d-1","name":"Local"}])");
    std::string file = output.path() + "/logs/gatr_orb-destination.json";

    keepOrbAnswer(document, ORB_DESTINATION_ENDPOINT);
    EXPECT_EQ("<missing>", orbtest::readFile(file));
    EXPECT_TRUE(work::archiveList.empty());

    work::hasOrbDebugOn = true;
    keepOrbAnswer(document, ORB_DESTINATION_ENDPOINT);
    JsonDocument kept;
    ASSERT_EQ(0, kept.loadDocument(file.c_str()));
    EXPECT_STREQ("Local", kept.getValue<char*>("[0]->name"));
    EXPECT_NE(std::string::npos, orbtest::readFile(file).find('\n')) << "written pretty";
    EXPECT_EQ((std::list<std::string>{file}), work::archiveList);
    EXPECT_TRUE(contains(errors.text(), " debug                " + file + "\n"));
}

TEST_F(OrbRestDebug, EndpointsWithoutAKeptFileKeepNothing) {
    orbtest::OutputFolder folder(output.path());
    work::hasOrbDebugOn = true;
    JsonDocument document;
    orbtest::load(document, R"({"api_version":"v1"})");
    keepOrbAnswer(document, ORB_VERSION_ENDPOINT);
    keepOrbAnswer(document, ORB_THREADS_ENDPOINT);
    EXPECT_TRUE(work::archiveList.empty());
}

TEST_F(OrbRestDebug, FailedWriteIsNeitherRecordedNorArchived) {
    orbtest::OutputFolder folder(output.path() + "/gone");
    (void)!system(("rm -rf '" + output.path() + "/gone'").c_str());
    ErrorLog errors;
    work::hasOrbDebugOn = true;
    JsonDocument document;
    orbtest::load(document, "[]");
    keepOrbAnswer(document, ORB_BACKUP_ENDPOINT);
    EXPECT_TRUE(work::archiveList.empty());
    EXPECT_EQ(std::string::npos, errors.text().find(" debug "));
}

}  // namespace
