// Number grouping, the string helpers and shell escaping at the edges of their buffers and counts.
#include <cstring>
#include "common/shell_escape.h"
#include "common/string_helpers.h"
#include "test_support.h"

TEST(FormatNumber, GroupsDigitsAndNeverWritesPastSize) {
    const struct { char separator; const char* in; unsigned long size; const char* want; } kCases[] = {
        {',', "999", 32, "999"}, {',', "1000", 32, "1,000"}, {',', "123456", 32, "123,456"}, {',', "", 32, ""},
        {',', "1234567", 32, "1,234,567"}, {',', "-1234.5678", 32, "-1,234.5678"}, {',', "+1000", 32, "+1,000"},
        {',', ".5", 32, ".5"}, {',', "12345678", 9, "12,345,6"}, {',', "-1234", 6, "-1,23"},
        {',', "1234567890", 11, "1,234,567,"}, {'\0', "1234567", 32, "1234567"}, {'\0', "-12345.5", 32, "-12345.5"},
        {',', "123456789", 8, "12,345,"}, {',', "-12345678", 8, "-1,234,"},  // the text fills the whole size
    };
    const char saved = work::thousandsSeparator;
    for (const auto& c : kCases) {
        work::thousandsSeparator = c.separator;  // NUL: a locale that does not group digits
        char buffer[40];
        memset(buffer, '#', sizeof buffer);
        const char past = strcpy(buffer, c.in)[c.size];  // '#', or the text's own beyond size
        format_number(buffer, c.size);
        EXPECT_EQ(c.want, std::string(buffer, strnlen(buffer, c.size))) << c.in << " in " << c.size;
        EXPECT_EQ(past, buffer[c.size]) << c.in << " in " << c.size;
    }
    work::thousandsSeparator = saved;
}

TEST(StrReplace, ReplacesEveryOccurrenceAndCutsAtSizeLessOne) {
    const struct { const char *in, *from, *to; unsigned long size; const char* want; } kCases[] = {
        {"banana", "a", "bb", 32, "bbbnbbnbb"}, {"banana", "a", "bb", 7, "bbbnbb"}, {"banana", "an", "", 32, "ba"},
        {"aaaa", "aa", "b", 32, "bb"}, {"abc", "zz", "y", 32, "abc"}, {"abc", "", "x", 32, "abc"},
    };
    for (const auto& c : kCases) {
        char buffer[40];
        memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(strlen(c.want), str_replace(strcpy(buffer, c.in), c.size, c.from, c.to)) << c.in << " " << c.size;
        EXPECT_STREQ(c.want, buffer) << c.in << " " << c.from << " in " << c.size;
    }
}

TEST(StrClassTests, LookAtTheFirstNCharactersOnly) {
    const auto num = str_isnumeric, alnum = str_isalphanumeric;
    const unsigned long kMinusOne = static_cast<unsigned long>(-1);  // counts are signed 32-bit: below 1
    const struct { bool (*test)(const char*, unsigned long); const char* in; unsigned long n; bool want; } kCases[] = {
        {num, "12a", 3, false}, {num, "12a", 2, true}, {num, "12a", 0, true}, {num, "x", kMinusOne, true},
        {num, "x", 0x100000000UL, true}, {alnum, "abXY09", 6, true}, {alnum, "ab-c", 4, false}, {alnum, "-", 0, true},
        {alnum, "ab c", 4, false}, {alnum, "-", kMinusOne, true},
    };
    for (const auto& c : kCases) EXPECT_EQ(c.want, c.test(c.in, c.n)) << c.in << " " << c.n;
}

TEST(Split, KeepsEveryEmptyPiece) {
    const struct { const char* in; const char* delimiter; std::list<std::string> want; } kCases[] = {
        {"a,,b", ",", {"a", "", "b"}}, {"", ",", {""}}, {"x", ",", {"x"}}, {"a,b,", ",", {"a", "b", ""}},
        {",a", ",", {"", "a"}}, {"one->two", "->", {"one", "two"}},
    };
    for (const auto& c : kCases) EXPECT_EQ(c.want, split(c.in, c.delimiter)) << c.in;
}

TEST(EscapeForDoubleQuotes, BackslashesTheFourSpecialCharactersAndCutsWhole) {
    const struct { const char* in; size_t size; const char* want; } kCases[] = {
        {"/var/log/app$(reboot).log", 64, "/var/log/app\\$(reboot).log"}, {"a\"b\\c`d", 64, "a\\\"b\\\\c\\`d"},
        {"it's; a|b & <c>*?\n", 64, "it's; a|b & <c>*?\n"}, {"ab$cd", 5, "ab\\$"}, {"abc", 1, ""}, {"", 4, ""},
        {"abc$d", 5, "abc"},  // "\$" needs two bytes and only one is left
    };
    for (const auto& c : kCases) {
        char buffer[64];
        memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(strlen(c.want), escapeForDoubleQuotes(c.in, buffer, c.size)) << c.in << " in " << c.size;
        EXPECT_STREQ(c.want, buffer) << c.in << " in " << c.size;
    }
}
