// The update check's control-file reading and version comparison.
#include "support/update_check.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ControlField, ReadsOneWordAfterTheKey) {
    struct Case {
        const char* name;
        const char* text;
        const char* key;
        const char* format;
        bool found;
        const char* want;
    };
    const Case cases[] = {
        {"empty key reads the first word", "2.4.0-1 https://x/y.tar.gz abc\n", "", "%31s[^\r\n;]",
         true, "2.4.0-1"},
        {"word is cut to the format width", "abcdefghijkl", "", "%7s[^\r\n;]", true, "abcdefg"},
        {"blank lines skipped, semicolons kept", "\r\n\n  2.3.3;next\n", "", "%31s[^\r\n;]", true,
         "2.3.3;next"},
        {"key searched, word after it read", "a=1\nversion= 2.5.0\n", "version=", "%31s[^\r\n;]",
         true, "2.5.0"},
        {"missing key leaves the field alone", "2.4.0", "version=", "%31s[^\r\n;]", false, "before"},
        {"empty text leaves the field empty", "", "", "%31s[^\r\n;]", true, ""},
    };
    for (const Case& c : cases) {
        char field[32] = "before";
        if (c.found) field[0] = '\0';
        EXPECT_EQ(c.found, readControlField(c.text, c.key, c.format, field)) << c.name;
        EXPECT_STREQ(c.want, field) << c.name;
    }
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
