// Escaping text for a double-quoted shell word.
#include "common/shell_escape.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(EscapeForDoubleQuotes, OnlyTheFourSpecialCharactersGetABackslash) {
    struct Case {
        const char* in;
        const char* want;
    };
    const Case cases[] = {
        {"/var/log/messages", "/var/log/messages"},
        {"", ""},
        {"/var/log/app$(reboot).log", "/var/log/app\\$(reboot).log"},
        {"/tmp/a\"b", "/tmp/a\\\"b"},
        {"/tmp/back\\slash", "/tmp/back\\\\slash"},
        {"/tmp/`id`", "/tmp/\\`id\\`"},
        {"/tmp/spaces and 'single' quotes;|&<>*?", "/tmp/spaces and 'single' quotes;|&<>*?"},
        {"$\"\\`", "\\$\\\"\\\\\\`"},
        {"new\nline", "new\nline"},
    };
    for (const Case& c : cases) {
        char buffer[128];
        size_t length = escapeForDoubleQuotes(c.in, buffer, sizeof buffer);
        EXPECT_STREQ(c.want, buffer) << c.in;
        EXPECT_EQ(std::string(c.want).size(), length) << c.in;
    }
}

TEST(EscapeForDoubleQuotes, CutNeverSplitsAnEscape) {
    char buffer[5];
    // "ab" fits, then "\$" needs two bytes but only one is left before the terminator.
    EXPECT_EQ(3u, escapeForDoubleQuotes("abc$d", buffer, sizeof buffer));
    EXPECT_STREQ("abc", buffer);
    EXPECT_EQ(2u, escapeForDoubleQuotes("ab$cd", buffer, 4));
    EXPECT_STREQ("ab", buffer);
    EXPECT_EQ(4u, escapeForDoubleQuotes("ab$cd", buffer, sizeof buffer));
    EXPECT_STREQ("ab\\$", buffer);
}

TEST(EscapeForDoubleQuotes, ZeroOrOneByteBuffers) {
    char buffer[1] = {'x'};
    EXPECT_EQ(0u, escapeForDoubleQuotes("abc", buffer, 0));
    EXPECT_EQ('x', buffer[0]);
    EXPECT_EQ(0u, escapeForDoubleQuotes("abc", buffer, 1));
    EXPECT_EQ('\0', buffer[0]);
}

}  // namespace
