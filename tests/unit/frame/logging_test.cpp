// The error log's fixed columns, padded and cut.
#include "frame/logging.h"
#include <regex>
#include "test_support.h"

TEST(LogError, LineHasFixedColumnsPaddedAndCut) {
    const struct { const char* file; unsigned line; int status; const char* want; } kCases[] = {
        {"src/frame/app.cpp", 42, 0, "app.cpp          [   42] information          value 5\n"},
        {"a/b/averylongsourcename.cpp", 7, 1, "averylongsourcen [    7] warning              value 5\n"},
        {"noslash.cpp", 0, 2, "noslash.cpp      [     ] ERROR                value 5\n"},  // "%5.u" prints no 0
        {"x", 123456, 3, "x                [123456] FATAL                value 5\n"},
        {"x", 1, 4, "x                [    1] debug                value 5\n"},
        {"x", 1, 7, "x                [    1] unknown              value 5\n"},
    };
    for (const auto& c : kCases) {
        ts::ErrorLog log;
        logError(c.file, c.line, static_cast<status_t>(c.status), "value %d", 5);
        const std::string text = log.text();
        EXPECT_TRUE(std::regex_match(text.substr(0, 20), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d )"))) << text;
        EXPECT_EQ(c.want, text.substr(std::min<size_t>(20, text.size()))) << c.file;
    }
}
