// Folder helpers and placeholder expansion.
#include "collect/placeholders.h"
#include "frame/folders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "test_support.h"

namespace {

using test_support::EnvScope;

// A temporary folder named by a plain path string, for the C-string helpers under test.
struct TempFolder {
    test_support::TempDir dir;
    const std::string& path = dir.path();
};

bool isFolder(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

TEST(MakeDirectory, CreatesEveryMissingParent) {
    TempFolder top;
    std::string deep = top.path + "/a/b/c";
    EXPECT_EQ(0, makeDirectory(deep.c_str()));
    EXPECT_TRUE(isFolder(top.path + "/a/b"));
    EXPECT_TRUE(isFolder(deep));
    EXPECT_EQ(0, makeDirectory(deep.c_str())) << "an existing folder is success";
}

TEST(MakeDirectory, RefusesAPathWithoutSlash) {
    EXPECT_EQ(-1, makeDirectory("abc"));
}

TEST(RemoveDirectory, RemovesFilesAndEmptyFoldersButDoesNotRecurse) {
    TempFolder top;
    std::string folder = top.path + "/logs";
    ASSERT_EQ(0, makeDirectory((folder + "/full").c_str()));
    ASSERT_EQ(0, makeDirectory((folder + "/empty").c_str()));
    std::ofstream(folder + "/file.log") << "x";
    std::ofstream(folder + "/full/inner") << "x";

    EXPECT_EQ(-1, removeDirectory(folder.c_str(), false)) << "the full subfolder stays";
    EXPECT_TRUE(isFolder(folder + "/full"));
    EXPECT_FALSE(isFolder(folder + "/empty"));
    EXPECT_NE(0, access((folder + "/file.log").c_str(), F_OK));

    std::remove((folder + "/full/inner").c_str());
    EXPECT_EQ(0, removeDirectory(folder.c_str(), true));
    EXPECT_FALSE(isFolder(folder));
}

TEST(GetDirectoryList, ListsNamesWithoutDotEntriesAndEmptiesOnFailure) {
    TempFolder top;
    std::ofstream(top.path + "/one") << "1";
    std::ofstream(top.path + "/two") << "2";
    std::vector<std::string> entries = {"stale"};
    getDirectoryList(top.path.c_str(), entries);
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ((std::vector<std::string>{"one", "two"}), entries);

    getDirectoryList((top.path + "/missing").c_str(), entries);
    EXPECT_TRUE(entries.empty());
}

std::string expand(const char* text, const char* install = "/opt/Brimwell/orb") {
    char buffer[256] = {};
    snprintf(buffer, sizeof buffer, "%s", text);
    sanitiseFileName(buffer, sizeof buffer, install);
    return buffer;
}

TEST(SanitiseFileName, ExpandsPlaceholders) {
    EnvScope sudo("SUDO_USER", "alice");
    EnvScope home("HOME", "/root");
    EnvScope custom("GATR_TEST_VALUE", "abc");
    EnvScope unset("GATR_TEST_UNSET", nullptr);
    struct Case { const char* in; const char* want; };
    const Case cases[] = {
        {"%HOME%/x", "/home/alice/x"},
        {"%INSTALL%/logs/*.log", "/opt/Brimwell/orb/logs/*.log"},
        {"/var/%GATR_TEST_VALUE%/%GATR_TEST_VALUE%", "/var/abc/abc"},
        {"/var/%GATR_TEST_UNSET%/x", "/var/(null)/x"},
        {"100% sure", "100% sure"},
        {"no placeholders", "no placeholders"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.want, expand(c.in)) << c.in;
}

TEST(SanitiseFileName, HomeWithoutSudoIsTheCallersHome) {
    EnvScope sudo("SUDO_USER", nullptr);
    EnvScope home("HOME", "/root");
    EXPECT_EQ("/root/.config", expand("%HOME%/.config"));
}

TEST(SanitiseFileName, SelfReferencingValueEndsAndStaysInTheBuffer) {
    EnvScope loop("GATR_TEST_LOOP", "%GATR_TEST_LOOP%%GATR_TEST_LOOP%");
    std::string out = expand("%GATR_TEST_LOOP%");
    EXPECT_LT(out.size(), 256u);
}

}  // namespace
