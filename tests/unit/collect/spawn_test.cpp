// Running programs through the shell: output to a file or to lines, and the failure messages.
#include "collect/spawning.h"

#include <gtest/gtest.h>

#include <csignal>
#include <list>
#include <stdexcept>
#include <string>

#include "frame/work.h"
#include "products_test_support.h"

using namespace testsupport;

namespace {

TEST(GetSpawnedProgram, NamesTheProgramOfEachCommandForm) {
    struct Case {
        const char* name;
        const char* command;
        const char* want;
    };
    const Case cases[] = {
        {"plain word", "ls -l", "ls"},
        {"absolute path", "/usr/bin/ls -l /tmp", "ls"},
        {"quoted path with a blank", "\"/opt/x y/bin/tool\" --all", "tool"},
        {"quoted word without arguments", "\"tool\"", "tool"},
        {"quoted relative path", "\"bin/run me\" x", "run me"},
        {"trailing slash leaves nothing", "/usr/bin/ x", ""},
    };
    for (const Case& c : cases) {
        char buffer[4096];
        EXPECT_STREQ(c.want, getSpawnedProgram(c.command, buffer, sizeof buffer)) << c.name;
    }
}

TEST(GetSpawnedProgram, CutsAProgramLongerThanTheBuffer) {
    char buffer[8];
    EXPECT_STREQ("abcdefg", getSpawnedProgram("abcdefghijk -x", buffer, sizeof buffer));
}

TEST(GetSpawnedProgram, ThrowsForACommandWithoutArguments) {
    char buffer[64];
    try {
        getSpawnedProgram("lsmod", buffer, sizeof buffer);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("malformed command: no space after program found", e.what());
    }
}

TEST(GetSpawnedProgram, ThrowsForAnUnclosedQuote) {
    char buffer[64];
    try {
        getSpawnedProgram("\"/opt/x y/bin/tool --all", buffer, sizeof buffer);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("malformed command: no closing double quote found", e.what());
    }
}

TEST(SpawnProgramToFile, DropsALastLineWithoutNewline) {
    TempDir dir;
    CapturedErrorLog errors;
    std::string out = dir.file("out.txt");
    EXPECT_EQ(0, spawnProgram("printf 'a\\nb'", out.c_str(), "w"));
    EXPECT_EQ("a\n", readFile(out));
    EXPECT_EQ("", errors.text());
}

TEST(SpawnProgramToFile, CopiesEveryCompleteLineUnchanged) {
    TempDir dir;
    std::string out = dir.file("out.txt");
    EXPECT_EQ(0, spawnProgram("printf 'one\\r\\n\\n  three \\n'", out.c_str(), "w"));
    EXPECT_EQ("one\r\n\n  three \n", readFile(out));
}

TEST(SpawnProgramToFile, AppendModeKeepsEarlierContent) {
    TempDir dir;
    std::string out = dir.file("out.txt");
    writeFile(out, "before\n");
    EXPECT_EQ(0, spawnProgram("echo after", out.c_str(), "a"));
    EXPECT_EQ("before\nafter\n", readFile(out));
    EXPECT_EQ(0, spawnProgram("echo fresh", out.c_str(), "w"));
    EXPECT_EQ("fresh\n", readFile(out));
}

TEST(SpawnProgramToFile, ExitCodeIsLoggedAsTheRawWaitStatusAndOutputStays) {
    TempDir dir;
    CapturedErrorLog errors;
    std::string out = dir.file("out.txt");
    EXPECT_EQ(-1, spawnProgram("echo partial; exit 3", out.c_str(), "w"));
    EXPECT_EQ("partial\n", readFile(out));
    EXPECT_EQ(std::vector<std::string>{"call to echo failed: exit code is 768\n"},
              errorMessages(errors.text()));
    EXPECT_EQ(std::vector<std::string>{"ERROR"}, errorStatuses(errors.text()));
}

TEST(SpawnProgramToFile, QuotedProgramPathIsNamedByItsBaseName) {
    TempDir dir;
    ASSERT_EQ(0, mkdir((dir.file("x y")).c_str(), 0755));
    std::string tool = dir.file("x y/tool");
    writeFile(tool, "#!/bin/sh\necho ran \"$1\"\nexit 2\n", 0755);
    CapturedErrorLog errors;
    std::string out = dir.file("out.txt");
    std::string command = "\"" + tool + "\" arg";
    EXPECT_EQ(-1, spawnProgram(command.c_str(), out.c_str(), "w"));
    EXPECT_EQ("ran arg\n", readFile(out));
    EXPECT_EQ(std::vector<std::string>{"call to tool failed: exit code is 512\n"},
              errorMessages(errors.text()));
}

TEST(SpawnProgramToFile, UnopenableFileIsLoggedAndTheCommandNeverRuns) {
    TempDir dir;
    CapturedErrorLog errors;
    std::string out = dir.file("missing/out.txt");
    std::string marker = dir.file("marker");
    std::string command = "touch " + marker;
    EXPECT_EQ(-1, spawnProgram(command.c_str(), out.c_str(), "w"));
    EXPECT_FALSE(exists(marker));
    EXPECT_EQ(std::vector<std::string>{"fopen on " + out + " failed: No such file or directory\n"},
              errorMessages(errors.text()));
}

TEST(SpawnProgramToFile, ShellThatCannotStartIsLoggedAndTheFileStays) {
    TempDir dir;
    CapturedErrorLog errors;
    std::string out = dir.file("out.txt");
    {
        FdLimitScope limit(1);  // room for the file, none for the pipe
        EXPECT_EQ(-1, spawnProgram("echo never", out.c_str(), "w"));
    }
    EXPECT_TRUE(exists(out));
    EXPECT_EQ("", readFile(out));
    EXPECT_EQ(std::vector<std::string>{"popen to echo failed: Too many open files\n"},
              errorMessages(errors.text()));
}

TEST(SpawnProgramToFile, LostChildStatusIsLoggedWithTheWaitText) {
    TempDir dir;
    CapturedErrorLog errors;
    std::string out = dir.file("out.txt");
    // With SIGCHLD ignored the kernel reaps the child itself and pclose cannot get a status.
    struct sigaction ignore = {}, saved = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &saved);
    int result = spawnProgram("echo gone", out.c_str(), "w");
    sigaction(SIGCHLD, &saved, nullptr);
    EXPECT_EQ(-1, result);
    EXPECT_EQ(std::vector<std::string>{"call to echo failed: wait4 returned an error, or some "
                                       "other error is detected\n"},
              errorMessages(errors.text()));
}

TEST(SpawnProgramToLines, CollectsCompleteLinesWithoutTheirEndings) {
    std::list<std::string> lines = {"stale"};
    EXPECT_EQ(0, spawnProgram("printf 'x\\r\\n\\r\\n\\ny\\r\\nlast\\n'", lines));
    EXPECT_EQ((std::list<std::string>{"x", "", "y", "last"}), lines);
}

TEST(SpawnProgramToLines, DropsALastLineWithoutNewline) {
    std::list<std::string> lines;
    EXPECT_EQ(0, spawnProgram("printf 'a\\nb'", lines));
    EXPECT_EQ(std::list<std::string>{"a"}, lines);
}

TEST(SpawnProgramToLines, OnlyACarriageReturnBeforeTheNewlineIsCut) {
    std::list<std::string> lines;
    EXPECT_EQ(0, spawnProgram("printf 'ab\\rc\\n'", lines));
    EXPECT_EQ(std::list<std::string>{"ab\rc"}, lines) << "only the length as read counts";
    EXPECT_EQ(0, spawnProgram("printf 'ab\\r\\nz\\n'", lines));
    EXPECT_EQ((std::list<std::string>{"ab", "z"}), lines);
}

TEST(SpawnProgramToLines, NonZeroExitKeepsTheLinesAndIsLogged) {
    CapturedErrorLog errors;
    std::list<std::string> lines;
    EXPECT_EQ(-1, spawnProgram("sh -c 'echo one; echo two; exit 1'", lines));
    EXPECT_EQ((std::list<std::string>{"one", "two"}), lines);
    EXPECT_EQ(std::vector<std::string>{"call to sh failed: exit code is 256\n"},
              errorMessages(errors.text()));
}

TEST(SpawnProgramToLines, ShellThatCannotStartIsLogged) {
    CapturedErrorLog errors;
    std::list<std::string> lines = {"stale"};
    {
        FdLimitScope limit(0);
        EXPECT_EQ(-1, spawnProgram("echo never", lines));
    }
    EXPECT_TRUE(lines.empty());
    EXPECT_EQ(std::vector<std::string>{"popen to echo failed: Too many open files\n"},
              errorMessages(errors.text()));
}

TEST(SpawnProgramToLines, FailingCommandWithoutArgumentsThrowsToTheCaller) {
    CapturedErrorLog errors;
    std::list<std::string> lines;
    EXPECT_THROW(spawnProgram("false", lines), std::runtime_error);
}

}  // namespace
