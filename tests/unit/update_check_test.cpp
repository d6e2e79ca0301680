// The update check's control-file reading and version comparison.
#include "update_check.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ControlField, EmptyKeyReadsTheFirstWordOfTheFile) {
    char field[32] = {};
    EXPECT_TRUE(readControlField("2.4.0-1 https://x/y.tar.gz abc\n", "", "%31s[^\r\n;]", field));
    EXPECT_STREQ("2.4.0-1", field);
}

TEST(ControlField, WordIsCutToTheFormatWidth) {
    char field[8] = {};
    EXPECT_TRUE(readControlField("abcdefghijkl", "", "%7s[^\r\n;]", field));
    EXPECT_STREQ("abcdefg", field);
}

TEST(ControlField, LeadingBlankLinesAreSkippedAndSemicolonsKept) {
    char field[32] = {};
    EXPECT_TRUE(readControlField("\r\n\n  2.3.3;next\n", "", "%31s[^\r\n;]", field));
    EXPECT_STREQ("2.3.3;next", field);
}

TEST(ControlField, KeyIsSearchedAndTheWordAfterItRead) {
    char field[32] = {};
    EXPECT_TRUE(readControlField("a=1\nversion= 2.5.0\n", "version=", "%31s[^\r\n;]", field));
    EXPECT_STREQ("2.5.0", field);
}

TEST(ControlField, MissingKeyLeavesTheFieldAlone) {
    char field[32] = "before";
    EXPECT_FALSE(readControlField("2.4.0", "version=", "%31s[^\r\n;]", field));
    EXPECT_STREQ("before", field);
}

TEST(ControlField, EmptyTextLeavesTheFieldEmpty) {
    char field[32] = {};
    EXPECT_TRUE(readControlField("", "", "%31s[^\r\n;]", field));
    EXPECT_STREQ("", field);
}

TEST(VersionComparison, RunningIsLaterOnlyAtTheFirstDifferingGreaterField) {
    struct Case {
        const char* available;
        bool runningLater;
    };
    const Case cases[] = {
        {"2.3.2-9", true},
        {"2.3.2", true},
        {"2.2.9", true},
        {"1.9.9-99", true},
        {"", true},             // reads as 0.0.0-0
        {"https://x/y", true},  // no number at all
        {"2.3.3-0", false},     // a tie counts as new
        {"2.3.3-1", false},
        {"2.3.4", false},
        {"2.4.0", false},
        {"3", false},
        {"10.0.0", false},
        {"2.3", true},          // 2.3.0-0: missing fields read as 0
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.runningLater, isRunningVersionLater("2.3.3", c.available)) << c.available;
    }
}

}  // namespace
