// Error-log line layout and the behaviour before the log is open.
#include "frame/logging.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

#include "frame/work.h"
#include "test_support.h"

namespace {

using test_support::CapturedErrorLog;

const std::regex kLine(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d (.{16}) \[(.{5})\] (.{20}) (.*)\n$)");

struct Parsed {
    std::string source, line, status, message;
};

Parsed parse(const std::string& text) {
    std::smatch m;
    EXPECT_TRUE(std::regex_match(text, m, kLine)) << text;
    if (m.empty()) return {};
    return {m[1], m[2], m[3], m[4]};
}

TEST(LogError, LineLayoutPadsAndCutsEachField) {
    struct Case {
        const char* file; unsigned line; int status; const char* source; const char* lineText;
        const char* word;
    };
    const Case cases[] = {
        {"src/main.cpp", 42, 0, "main.cpp        ", "   42", "information         "},
        {"a/b/verylongsourcefilename.cpp", 123456, 1, "verylongsourcefi", "123456", "warning             "},
        {"nodirectory_at_all_here.cpp", 7, 2, "nodirectory_at_a", "    7", "ERROR               "},
        // A precision of zero prints no digit at all for line 0.
        {"x", 0, 3, "x               ", "     ", "FATAL               "},
        {"x", 1, 4, "x               ", "    1", "debug               "},
        {"x", 1, 7, "x               ", "    1", "unknown             "},
    };
    for (const Case& c : cases) {
        CapturedErrorLog log;
        logError(c.file, c.line, static_cast<status_t>(c.status), "value %d", 5);
        std::string text = log.text();
        if (std::string(c.lineText).size() > 5) {
            // A line number wider than five digits widens the field rather than being cut.
            EXPECT_NE(std::string::npos, text.find("[123456]")) << c.file;
            continue;
        }
        Parsed p = parse(text);
        EXPECT_EQ(c.source, p.source) << c.file;
        EXPECT_EQ(c.lineText, p.line) << c.file;
        EXPECT_EQ(c.word, p.status) << c.file;
        EXPECT_EQ("value 5", p.message) << c.file;
    }
}

TEST(LogError, MessageEndingInLineFeedLeavesAnEmptyLine) {
    CapturedErrorLog log;
    logError("src/x.cpp", 1, STATUS_ERROR, "fopen on %s failed: %s\n", "/a", "No such file");
    std::string text = log.text();
    ASSERT_GE(text.size(), 2u);
    EXPECT_EQ("failed: No such file\n\n", text.substr(text.size() - 22));
}

TEST(LogError, BeforeTheLogIsOpenPrintsTheRawFormatOnStandardError) {
    ASSERT_EQ(nullptr, work::errorsOs);
    testing::internal::CaptureStderr();
    logError("src/x.cpp", 1, STATUS_ERROR, "mkdir on %s failed: %s\n", "/a", "b");
    EXPECT_EQ("gatr: mkdir on %s failed: %s\n\n", testing::internal::GetCapturedStderr());
}

}  // namespace
