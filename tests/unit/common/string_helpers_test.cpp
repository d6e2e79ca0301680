// String and number helpers: grouping, replacement, case and class tests, splitting.
#include "common/string_helpers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/work.h"

namespace {

struct SeparatorScope {
    explicit SeparatorScope(char separator) : saved(work::thousandsSeparator) {
        work::thousandsSeparator = separator;
    }
    ~SeparatorScope() { work::thousandsSeparator = saved; }
    char saved;
};

std::string grouped(const char* text) {
    char buffer[64] = {};
    snprintf(buffer, sizeof buffer, "%s", text);
    return format_number(buffer, sizeof buffer);
}

TEST(FormatNumber, GroupsDigitsWithAComma) {
    SeparatorScope comma(',');
    struct Case { const char* in; const char* want; };
    const Case cases[] = {
        {"0", "0"},           {"999", "999"},         {"1000", "1,000"},
        {"123456", "123,456"}, {"1234567", "1,234,567"}, {"-1234.5", "-1,234.5"},
        {"+1000", "+1,000"},   {".5", ".5"},             {"-.25", "-.25"},
        {"1234.56789", "1,234.56789"}, {"", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(c.want, grouped(c.in)) << c.in;
}

TEST(FormatNumber, WithoutASeparatorTheTextEndsAfterTheFirstGroup) {
    SeparatorScope none('\0');
    struct Case { const char* in; const char* want; };
    const Case cases[] = {{"1234567", "1"}, {"123456", "123"}, {"999", "999"}, {"-12345.5", "-12"}};
    for (const Case& c : cases) EXPECT_EQ(c.want, grouped(c.in)) << c.in;
}

TEST(FormatNumber, NeverWritesPastTheBuffer) {
    SeparatorScope comma(',');
    char buffer[9] = "12345678";  // grouping needs 10 bytes
    char guard[4] = "zzz";
    format_number(buffer, sizeof buffer);
    EXPECT_EQ(std::string("12,345,6"), std::string(buffer, strnlen(buffer, sizeof buffer)));
    EXPECT_STREQ("zzz", guard);
}

TEST(StrIsNumeric, CountsOnlyTheGivenCharacters) {
    EXPECT_FALSE(str_isnumeric("12a", 3));
    EXPECT_TRUE(str_isnumeric("12a", 2));
    EXPECT_TRUE(str_isnumeric("12a", 0));
    EXPECT_TRUE(str_isnumeric("x", static_cast<unsigned long>(-1)));  // negative as 32 bits
    EXPECT_FALSE(str_isnumeric("0123456 ", 8));
    EXPECT_TRUE(str_isnumeric("01234567", 8));
}

TEST(StrIsAlphanumeric, LettersAndDigitsOnly) {
    EXPECT_TRUE(str_isalphanumeric("abcXYZ019", 9));
    EXPECT_FALSE(str_isalphanumeric("ab-c", 4));
    EXPECT_FALSE(str_isalphanumeric("ab c", 4));
    EXPECT_TRUE(str_isalphanumeric("", 0));
}

TEST(StrReplaceText, ReplacesEveryOccurrence) {
    struct Case { const char* in; const char* from; const char* to; const char* want; };
    const Case cases[] = {
        {"banana", "a", "bb", "bbbnbbnbb"},
        {"banana", "an", "", "ba"},
        {"aaaa", "aa", "b", "bb"},            // non-overlapping, left to right
        {"%HOME%/x", "%HOME%", "/root", "/root/x"},
        {"nothing here", "zz", "y", "nothing here"},
    };
    for (const Case& c : cases) {
        char buffer[64] = {};
        snprintf(buffer, sizeof buffer, "%s", c.in);
        unsigned long length = str_replace(buffer, sizeof buffer, c.from, c.to);
        EXPECT_STREQ(c.want, buffer) << c.in << " " << c.from;
        EXPECT_EQ(strlen(c.want), length) << c.in << " " << c.from;
    }
}

TEST(StrReplaceText, CutsTheResultToTheBuffer) {
    char buffer[16] = "banana";
    unsigned long length = str_replace(buffer, 7, "a", "bb");
    EXPECT_STREQ("bbbnbb", buffer);
    EXPECT_EQ(6u, length);
    EXPECT_EQ('\0', buffer[7]);
}

TEST(StrReplaceText, EmptyPatternLeavesTextAlone) {
    char buffer[16] = "abc";
    EXPECT_EQ(3u, str_replace(buffer, sizeof buffer, "", "x"));
    EXPECT_STREQ("abc", buffer);
}

TEST(StrReplaceCharacter, OnlyWithinCount) {
    char buffer[] = "a.b.c.d";
    str_replace(buffer, 4, '.', '_');
    EXPECT_STREQ("a_b_c.d", buffer);
}

TEST(StrCase, ChangesOnlyTheFirstN) {
    char lower[] = "HeLLo World";
    str_tolower(lower, 5);
    EXPECT_STREQ("hello World", lower);
    char upper[] = "eu-west";
    str_toupper(upper, strlen(upper));
    EXPECT_STREQ("EU-WEST", upper);
    char untouched[] = "ABC";
    str_tolower(untouched, 0);
    EXPECT_STREQ("ABC", untouched);
}

TEST(Split, KeepsEmptyPieces) {
    struct Case { const char* text; const char* delimiter; std::vector<std::string> want; };
    const Case cases[] = {
        {"a,,b", ",", {"a", "", "b"}},
        {"", ",", {""}},
        {"x", ",", {"x"}},
        {"a,b,", ",", {"a", "b", ""}},
        {",a", ",", {"", "a"}},
        {"one->two->three", "->", {"one", "two", "three"}},
    };
    for (const Case& c : cases) {
        std::list<std::string> pieces = split(c.text, c.delimiter);
        EXPECT_EQ(c.want, std::vector<std::string>(pieces.begin(), pieces.end())) << c.text;
    }
}

}  // namespace
