// Copying command output into the main log or a file: heading, indent, filters, the dropped
// last line.
#include "inventory/linux_blocks.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "test_support.h"

namespace {

using test_support::CapturedErrorLog;
using test_support::CapturedMainLog;

// The message part of every error-log line, one per entry, in order.
std::string messages(const std::string& errorLog) {
    std::string out;
    size_t start = 0;
    while (start < errorLog.size()) {
        size_t end = errorLog.find('\n', start);
        if (end == std::string::npos) end = errorLog.size();
        std::string line = errorLog.substr(start, end - start);
        // "%19s %-16.16s [%5.u] %-20.20s " takes the first 66 characters.
        if (line.size() > 66) out += line.substr(66) + "|";
        start = end + 1;
    }
    return out;
}

TEST(CopyCommandBlock, CopiesIndentedLinesAndEndsWithAnEmptyLine) {
    struct Case {
        const char* name;
        const char* heading;
        const char* command;
        LineFilter filter;
        const char* wantLog;
        const char* wantErrors;
    };
    const Case cases[] = {
        {"no heading", nullptr, "printf 'a=1\\nb=2\\n'", LineFilter::None, "  a=1\n  b=2\n\n", ""},
        {"heading", "Block devices:", "printf 'x\\n'", LineFilter::None,
         "Block devices:\n  x\n\n", ""},
        {"last line without newline is dropped", "H:", "printf 'one\\ntwo'", LineFilter::None,
         "H:\n  one\n\n", ""},
        {"no output", "H:", "true", LineFilter::None, "H:\n\n", ""},
        {"error lines go to the error log", "H:",
         "printf 'fine\\nsome error here\\nERROR: bad\\nError: kept\\n'", LineFilter::Errors,
         "H:\n  fine\n  Error: kept\n\n", "some error here|ERROR: bad|"},
        {"without a filter error lines stay", nullptr, "printf 'an error\\n'", LineFilter::None,
         "  an error\n\n", ""},
        {"repositories keep Repo- and empty lines", "Enabled repositories:",
         "printf 'Loading mirror speeds\\nRepo-id      : base/7/x86_64\\nRepo-name    : "
         "CentOS-7 - Base\\nRepo-status  : enabled\\n\\nRepo-id      : updates\\n"
         "Cannot retrieve repository metadata (repomd.xml): error was 404\\n"
         " Repo-indented\\nrepolist: 2\\n'",
         LineFilter::Repositories,
         "Enabled repositories:\n  Repo-id      : base/7/x86_64\n  Repo-name    : CentOS-7 - "
         "Base\n  Repo-status  : enabled\n  \n  Repo-id      : updates\n\n",
         "Cannot retrieve repository metadata (repomd.xml): error was 404|"},
        {"stderr merged by the command is filtered too", nullptr,
         "sh -c 'echo read error >&2' 2>&1", LineFilter::Errors, "\n", "read error|"},
    };
    for (const Case& c : cases) {
        CapturedMainLog log;
        CapturedErrorLog errors;
        EXPECT_TRUE(copyCommandBlock(c.heading, c.command, "word", c.filter)) << c.name;
        EXPECT_EQ(c.wantLog, log.text()) << c.name;
        EXPECT_EQ(c.wantErrors, messages(errors.text())) << c.name;
    }
}

TEST(CopyCommandBlock, ErrorLineIsLoggedAsErrorUnderTheModuleName) {
    CapturedMainLog log;
    CapturedErrorLog errors;
    copyCommandBlock(nullptr, "printf 'disk error\\n'", "word", LineFilter::Errors);
    std::string text = errors.text();
    EXPECT_EQ("linux.cpp       ", text.substr(20, 16));
    EXPECT_NE(std::string::npos, text.find("] ERROR                disk error\n\n")) << text;
}

TEST(CopyCommandBlock, LongLinesArriveInPiecesOfTheLineSize) {
    CapturedMainLog log;
    CapturedErrorLog errors;
    // 1500 characters and a newline: a first piece of 1023, then the rest with the newline.
    copyCommandBlock(nullptr, "printf '%1500s\\n' x", "word", LineFilter::None);
    std::string want = "  " + std::string(1022, ' ') + "  " + std::string(477, ' ') + "x\n\n";
    EXPECT_EQ(want, log.text());
}

std::string readWhole(const std::string& path) {
    std::string text;
    FILE* f = fopen(path.c_str(), "r");
    if (f == nullptr) return "<missing>";
    char block[256];
    size_t n;
    while ((n = fread(block, 1, sizeof block, f)) > 0) text.append(block, n);
    fclose(f);
    return text;
}

void writeTitle(FILE* file) {
    fputs("Title\n\n", file);
}

TEST(CopyCommandToFile, HeadingThenCompleteLinesUnchanged) {
    test_support::TempDir dir;
    CapturedErrorLog errors;
    std::string path = dir.file("out.log");
    EXPECT_TRUE(copyCommandToFile(path.c_str(), writeTitle, "printf 'a\\n  error b\\nc'",
                                  "word", 1024));
    EXPECT_EQ("Title\n\na\n  error b\n", readWhole(path));
    EXPECT_EQ("", errors.text());
}

TEST(CopyCommandToFile, FileThatCannotBeCreatedIsLoggedAndNothingRuns) {
    test_support::TempDir dir;
    CapturedErrorLog errors;
    std::string path = dir.file("missing/out.log");
    std::string marker = dir.file("ran");
    std::string command = "touch " + marker;
    EXPECT_FALSE(copyCommandToFile(path.c_str(), writeTitle, command.c_str(), "word", 1024));
    EXPECT_EQ("<missing>", readWhole(marker));
    EXPECT_EQ("fopen on " + path + " failed: No such file or directory|", messages(errors.text()));
}

TEST(IsErrorLine, LowerAndUpperCaseOnly) {
    EXPECT_TRUE(isErrorLine("an error"));
    EXPECT_TRUE(isErrorLine("ERROR"));
    EXPECT_TRUE(isErrorLine("errors: 0"));
    EXPECT_FALSE(isErrorLine("Error"));
    EXPECT_FALSE(isErrorLine("e r r o r"));
    EXPECT_FALSE(isErrorLine(""));
}

}  // namespace
