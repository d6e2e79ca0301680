// The hash mode: pattern classification and matching, and whole walks over a folder compared
// with what coreutils prints for the same files.
#include "support/hash_command.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "frame/folders.h"
#include "frame/work.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using test_support::CapturedErrorLog;
using test_support::runCommand;
using test_support::TempDir;
using test_support::writeFile;

// ---- classification and matching -----------------------------------------------------------

TEST(HashPattern, ClassifiesEachKindWithItsParts) {
    struct Case {
        const char* pattern;
        hash_pattern_kind_t kind;
        const char* first;
        const char* second;
    };
    const Case cases[] = {
        {"*", PATTERN_ALL, "", ""},
        {"brw*", PATTERN_PREFIX, "brw", ""},
        {"*.log", PATTERN_SUFFIX, ".log", ""},
        {"*inst*", PATTERN_INFIX, "inst", ""},
        {"**", PATTERN_INFIX, "", ""},
        {"brw*.log", PATTERN_PREFIX_SUFFIX, "brw", ".log"},
        // The first "*" splits; later ones are plain text.
        {"a*b*c", PATTERN_PREFIX_SUFFIX, "a", "b*c"},
        {"*a*b", PATTERN_SUFFIX, "a*b", ""},
        {"a*b*", PATTERN_PREFIX, "a*b", ""},
        {"*a*b*", PATTERN_INFIX, "a*b", ""},
    };
    for (const auto& c : cases) {
        HashPattern p = classifyHashPattern(c.pattern);
        EXPECT_EQ(p.kind, c.kind) << c.pattern;
        EXPECT_STREQ(p.first, c.first) << c.pattern;
        EXPECT_STREQ(p.second, c.second) << c.pattern;
    }
}

TEST(HashPattern, PartsLongerThan255CharactersAreCut) {
    std::string longText(300, 'p');
    std::string cut(HASH_PATTERN_PART_MAX, 'p');
    struct Case {
        std::string pattern;
        hash_pattern_kind_t kind;
        std::string first;
        std::string second;
    };
    const Case cases[] = {
        {longText + "*", PATTERN_PREFIX, cut, ""},
        {"*" + longText, PATTERN_SUFFIX, cut, ""},
        {"*" + longText + "*", PATTERN_INFIX, cut, ""},
        {longText + "*" + longText, PATTERN_PREFIX_SUFFIX, cut, cut},
        {"a*" + longText, PATTERN_PREFIX_SUFFIX, "a", cut},
    };
    for (const auto& c : cases) {
        HashPattern p = classifyHashPattern(c.pattern.c_str());
        EXPECT_EQ(p.kind, c.kind) << c.pattern.size();
        EXPECT_EQ(std::string(p.first), c.first) << c.pattern.size();
        EXPECT_EQ(std::string(p.second), c.second) << c.pattern.size();
    }
}

TEST(HashPattern, MatchesNamesByteWiseAndCaseSensitively) {
    struct Case {
        const char* pattern;
        const char* name;
        bool want;
    };
    const Case cases[] = {
        {"*", "anything", true},
        {"*", ".hidden", true},
        {"brw*.log", "brwinst.log", true},
        {"brw*.log", "brwinst.log.1", false},
        {"brw*.log", "BRWinst.log", false},
        {"brw*.log", "brw.log", true},
        {"*inst*", "brwinst.log", true},
        {"*inst*", "brwinst.log.1", true},
        {"*inst*", "install", true},
        {"*inst*", "INSTALL", false},
        {"brw*", "brw", true},
        {"brw*", "br", false},
        {"brw*", "xbrw", false},
        {"*.log", "a.log", true},
        {"*.log", "a.log.1", false},
        {"*.log", ".log", true},
        {"*.log", "log", false},
        // Prefix and suffix are tested independently, as they always have been: they may share
        // characters of the name.
        {"ab*ba", "aba", true},
        {"ab*ba", "ab", false},
        {"a*b*c", "a-b*c", true},
        {"a*b*c", "abc", false},
    };
    for (const auto& c : cases) {
        HashPattern p = classifyHashPattern(c.pattern);
        EXPECT_EQ(matchesHashPattern(p, c.name), c.want) << c.pattern << " vs " << c.name;
    }
}

// ---- whole walks ---------------------------------------------------------------------------

struct Tool {
    crypto_type_t type;
    const char* name;
};
const Tool kTools[] = {{CRYPTO_SHA256, "sha256sum"}, {CRYPTO_SHA1, "sha1sum"}, {CRYPTO_MD5, "md5sum"}};

// What the hash mode prints for the argument; the error log goes to a memory buffer.
std::string runHashMode(crypto_type_t type, const std::string& argument) {
    CapturedErrorLog log;
    const char* savedPath = work::hashPathname;
    work::hashPathname = argument.c_str();
    testing::internal::CaptureStdout();
    hashPathname(type);
    std::string output = testing::internal::GetCapturedStdout();
    work::hashPathname = savedPath;
    return output;
}

// The lines coreutils prints for the folder's entries whose names pass the filter, in the
// order the folder lists them, with paths built as "<prefix>/<name>".
template <typename Filter>
std::string expectedLines(const Tool& tool, const std::string& folder, const std::string& prefix,
                          Filter keep) {
    std::vector<std::string> entries;
    getDirectoryList(folder.c_str(), entries);
    std::string lines;
    for (const auto& name : entries) {
        if (!keep(name) || fs::is_directory(folder + "/" + name))
            continue;
        lines += runCommand(std::string(tool.name) + " '" + prefix + "/" + name + "'");
    }
    return lines;
}

class HashWalk : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(dir.file("brwinst.log"), "install log\n");
        writeFile(dir.file("brwinst.log.1"), "older install log\n");
        writeFile(dir.file("messages"), std::string(70000, 'm'));
        writeFile(dir.file("empty"), "");
        writeFile(dir.file("uninst.txt"), "removed\n");
        fs::create_directory(dir.file("journal"));
        writeFile(dir.file("journal/inside.log"), "not walked\n");
    }
    TempDir dir;
};

TEST_F(HashWalk, FolderPathHashesEveryPlainFileLikeStar) {
    for (const auto& tool : kTools) {
        std::string want = expectedLines(tool, dir.path(), dir.path(), [](const std::string&) {
            return true;
        });
        EXPECT_EQ(runHashMode(tool.type, dir.path() + "/"), want) << tool.name;
        EXPECT_EQ(runHashMode(tool.type, dir.path() + "/*"), want) << tool.name;
        EXPECT_EQ(want.find("inside.log"), std::string::npos);
        // Five plain files, the subfolder skipped.
        EXPECT_EQ(std::count(want.begin(), want.end(), '\n'), 5) << tool.name;
    }
}

TEST_F(HashWalk, EachPatternKindPrintsItsMatchesOnly) {
    struct Case {
        const char* pattern;
        std::vector<std::string> names;
    };
    const Case cases[] = {
        {"brw*.log", {"brwinst.log"}},
        {"*inst*", {"brwinst.log", "brwinst.log.1", "uninst.txt"}},
        {"brw*", {"brwinst.log", "brwinst.log.1"}},
        {"*.txt", {"uninst.txt"}},
        {"*nothing*", {}},
        {"journal*", {}},
    };
    for (const auto& c : cases) {
        for (const auto& tool : kTools) {
            std::string want = expectedLines(tool, dir.path(), dir.path(), [&](const std::string& n) {
                return std::find(c.names.begin(), c.names.end(), n) != c.names.end();
            });
            std::string got = runHashMode(tool.type, dir.path() + "/" + c.pattern);
            EXPECT_EQ(got, want) << c.pattern << " " << tool.name;
            EXPECT_EQ(static_cast<size_t>(std::count(got.begin(), got.end(), '\n')),
                      c.names.size())
                << c.pattern << " " << tool.name;
        }
    }
}

TEST_F(HashWalk, PlainFileIsPrintedWithThePathAsGiven) {
    for (const auto& tool : kTools) {
        std::string path = dir.file("messages");
        EXPECT_EQ(runHashMode(tool.type, path), runCommand(std::string(tool.name) + " '" + path + "'"))
            << tool.name;
    }
}

TEST_F(HashWalk, PatternWithoutFolderSearchesTheWorkingDirectory) {
    char saved[4096];
    ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    std::string got = runHashMode(CRYPTO_SHA256, "*.log");
    std::string want = runCommand("sha256sum ./brwinst.log");
    ASSERT_EQ(chdir(saved), 0);
    EXPECT_EQ(got, want);
}

TEST_F(HashWalk, MissingFolderPrintsNothingAndReturns) {
    EXPECT_EQ(runHashMode(CRYPTO_MD5, dir.file("absent") + "/"), "");
    EXPECT_EQ(runHashMode(CRYPTO_MD5, dir.file("absent") + "/*.log"), "");
}

TEST_F(HashWalk, FolderGivenAsPlainPathPrintsNothing) {
    EXPECT_EQ(runHashMode(CRYPTO_SHA1, dir.file("journal")), "");
}

TEST_F(HashWalk, OverlongPatternPartIsCutTo255Characters) {
    std::string name(HASH_PATTERN_PART_MAX, 'q');
    writeFile(dir.file(name), "long name\n");
    std::string pattern = std::string(300, 'q') + "*";
    std::string got = runHashMode(CRYPTO_SHA256, dir.path() + "/" + pattern);
    EXPECT_EQ(got, runCommand("sha256sum '" + dir.file(name) + "'"));
}

TEST(HashModeDeathTest, MissingPlainPathExitsWithStatusOne) {
    work::hashPathname = "/nonexistent/gatr/file.log";
    EXPECT_EXIT(hashPathname(CRYPTO_SHA256), ::testing::ExitedWithCode(1),
                "^gatr: file does not exist\n$");
    work::hashPathname = nullptr;
}

TEST(HashModeDeathTest, UnknownTypeIsReportedAndExitsWithStatusOne) {
    TempDir dir;
    writeFile(dir.file("f"), "x");
    EXPECT_EXIT(hashFile(static_cast<crypto_type_t>(4), dir.file("f").c_str()),
                ::testing::ExitedWithCode(1),
                "gatr: Crypto::computeHash\\(\\): unknown value passed for argument crypto_type_t");
}

}  // namespace
