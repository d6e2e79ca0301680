// The upload mode's helpers: the region list, the archive's remote name, the case number rule.
#include "upload.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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
