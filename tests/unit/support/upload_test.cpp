// The upload mode's helpers: the region list, the archive's remote name, the case number rule.
#include "support/support_servers.h"
#include "support/upload.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "json/jsonparser.h"
#include "support/support_servers.h"

namespace {

std::string listOf(const std::vector<const char*>& regions, size_t size = 1024) {
    std::vector<char> list(size, '\0');
    int count = static_cast<int>(regions.size());
    for (int i = 0; i < count; ++i) appendRegionName(list.data(), size, regions[i], i, count);
    return list.data();
}

TEST(RegionList, NamesAreJoinedWithCommasAndOrBeforeTheLast) {
    struct Case {
        std::vector<const char*> regions;
        const char* want;
    };
    const Case cases[] = {
        {{}, ""},
        {{"EU"}, "EU"},
        {{"EU", "US"}, "EU or US"},
        {{"EU", "US", "AU"}, "EU, US or AU"},
        {{"EU", "US", "AU", "JP"}, "EU, US, AU or JP"},
        {{"EU", "", "AU"}, "EU,  or AU"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.want, listOf(c.regions)) << c.want;
}

TEST(RegionList, OverlongListIsCutToItsBuffer) {
    EXPECT_EQ("EU, U", listOf({"EU", "US", "AU"}, 6));
    EXPECT_EQ("EU", listOf({"EU", "US", "AU"}, 3));
}

TEST(ArchiveBaseName, TextAfterTheLastSlashOrTheWholeArgument) {
    EXPECT_STREQ("node_2024.tar.gz", archiveBaseName("/tmp/out/node_2024.tar.gz"));
    EXPECT_STREQ("node_2024.tar.gz", archiveBaseName("node_2024.tar.gz"));
    EXPECT_STREQ("", archiveBaseName("/tmp/out/"));
}

TEST(CaseNumber, ExactlyEightDecimalDigits) {
    struct Case {
        const char* number;
        bool valid;
    };
    const Case cases[] = {
        {"01234567", true}, {"99999999", true},  {"1234567", false}, {"012345678", false},
        {"0123456A", false}, {"", false},        {"0123 567", false}, {"+1234567", false},
    };
    for (const Case& c : cases) EXPECT_EQ(c.valid, isValidCaseNumber(c.number)) << c.number;
}

}  // namespace

namespace {

// The configuration file that ships beside the program (unit tests run from the stage).
TEST(ShippedConfiguration, ListsEveryRegionWithAServerTheTransferCanReach) {
    JsonDocument config;
    ASSERT_EQ(0, config.loadDocument(CONFIG_FILE_NAME));
    int count = static_cast<int>(config.getArraySize("ftp_servers[]"));
    char regions[1024] = {};
    for (int i = 0; i < count; ++i) {
        char path[128];
        snprintf(path, sizeof path, "ftp_servers[%d]->region", i);
        appendRegionName(regions, sizeof regions, config.getValue<char*>(path), i, count);
        snprintf(path, sizeof path, "ftp_servers[%d]->use_secure", i);
        EXPECT_EQ(JSON_BOOLEAN, config.getType(path)) << path;

        FtpServer server;
        readFtpServer(config, i, server);
        std::string url = server.url;
        bool secure = url.rfind("ftps://", 0) == 0;
        EXPECT_TRUE(secure || url.rfind("ftp://", 0) == 0) << url;
        // The port is appended to the URL, so the URL holds none of its own.
        EXPECT_EQ(std::string::npos, url.find(':', secure ? 7 : 6)) << url;
        EXPECT_NE('/', url.back()) << url;
        // libcurl speaks TLS from the first byte to an ftps:// URL: that is the port for it.
        EXPECT_EQ(secure ? 990 : 21, server.port) << url;
    }
    EXPECT_STREQ("EU, US or AU", regions);

    int control = config.getValue<int>("ftp_servers->control_ftp_server");
    EXPECT_EQ(JSON_INTEGER, config.getType("control_ftp_server"));
    EXPECT_GE(control, 0);
    EXPECT_LT(control, count);
}

}  // namespace
