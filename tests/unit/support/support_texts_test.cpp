// The support services' texts: the region list, the case description, the control file and versions.
#include <vector>
#include <cstring>
#include "support/case_update.h"
#include "support/connector_key.h"
#include "support/update_check.h"
#include "support/upload.h"
#include "test_support.h"

TEST(AppendRegionName, JoinsWithCommasAndOrBeforeTheLastAndCuts) {
    const struct { std::vector<const char*> regions; size_t size; const char* want; } kCases[] = {
        {{}, 32, ""}, {{"EU"}, 32, "EU"}, {{"EU", "US"}, 32, "EU or US"}, {{"EU", "US", "AU"}, 32, "EU, US or AU"},
        {{"EU", "US", "AU", "JP"}, 32, "EU, US, AU or JP"}, {{"EU", "US", "AU"}, 6, "EU, U"},
        {{"EU", "US", "AU"}, 3, "EU"}, {{"EU", "US", "AU"}, 10, "EU, US or"}, {{"EU", "US", "AU"}, 8, "EU, US "},
    };
    for (const auto& c : kCases) {
        char list[32] = {};
        for (size_t i = 0; i < c.regions.size(); ++i)
            appendRegionName(list, c.size, c.regions[i], static_cast<int>(i), static_cast<int>(c.regions.size()));
        EXPECT_STREQ(c.want, list) << c.want << " in " << c.size;
    }
}

TEST(CaseDescription, ShowsTheDownloadUrlOverPlainFtpAndIsCut) {
    const std::string kText = "gatr archive file a.tar.gz was uploaded to the EU FTP server.\n\nDownload URL: ";
    const struct { const char* url; size_t size; std::string want; } kCases[] = {
        {"ftp://eu.example", 256, kText + "ftp://eu.example/01234567_a.tar.gz"},
        {"ftps://eu.example", 256, kText + "ftp://eu.example/01234567_a.tar.gz"},
        {"ftps://eu.example", 40, "gatr archive file a.tar.gz was uploaded"},
        {"ftps://eu.example", 86, kText + "ftp://e"},  // cut to "ftps://e" first, then shortened
    };
    for (const auto& c : kCases) {
        char text[256];
        buildCaseDescription(text, c.size, "a.tar.gz", "EU", c.url, "01234567");
        EXPECT_EQ(c.want, text) << c.url << " in " << c.size;
    }
}

TEST(ReadControlField, ReadsOneWordAfterTheKey) {
    const struct { const char* text; const char* key; const char* format; bool found; const char* want; } kCases[] = {
        {"2.4.0-1 https://x/y.tar.gz abc\n", "", "%31s[^\r\n;]", true, "2.4.0-1"},
        {"abcdefghij", "", "%7s", true, "abcdefg"},
        {"\r\n\n  2.3.3;next\n", "", "%31s[^\r\n;]", true, "2.3.3;next"}, {"2.4.0", "v=", "%31s", false, "before"},
        {"a=1\nv= 2.5.0\n", "v=", "%31s[^\r\n;]", true, "2.5.0"},
        {"", "", "%31s[^\r\n;]", true, "before"},  // nothing to read: the field keeps its text
    };
    for (const auto& c : kCases) {
        char field[32] = "before";
        EXPECT_EQ(c.found, readControlField(c.text, c.key, c.format, field)) << c.text;
        EXPECT_STREQ(c.want, field) << c.text;
    }
}

TEST(IsRunningVersionLater, OnlyAtTheFirstDifferingFieldAndNeverOnATie) {
    const struct { const char* available; bool want; } kCases[] = {
        {"2.3.2-9", true}, {"2.3.2", true}, {"2.2.9", true}, {"1.9.9-99", true}, {"2.3", true}, {"", true},
        {"https://x/y", true}, {"2.3.3", false}, {"2.3.3-0", false}, {"2.3.3-1", false}, {"2.3.4", false},
        {"2.4.0", false}, {"3", false}, {"10.0.0", false},
    };
    for (const auto& c : kCases) EXPECT_EQ(c.want, isRunningVersionLater("2.3.3", c.available)) << c.available;
}

TEST(ConnectorKey, IsWrittenWithoutAByteMore) {  // its bytes are proved by every upload
    unsigned char key[CONNECTOR_KEY_SIZE + 8];
    memset(key, 0xA5, sizeof key);
    getConnectorKey(key);
    EXPECT_EQ(std::string(8, '\xA5'), std::string(reinterpret_cast<char*>(key) + CONNECTOR_KEY_SIZE, 8));
}
