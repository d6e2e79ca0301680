// The archive's name, the order of its members and the tar command line.
#include "collect/archive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "frame/work.h"
#include "test_support.h"

namespace {

using test_support::CapturedErrorLog;

std::vector<std::string> ordered(std::list<std::string> entries) {
    orderArchiveList(entries);
    return {entries.begin(), entries.end()};
}

TEST(OrderArchiveList, SortedByteWiseWithoutDuplicates) {
    EXPECT_EQ((std::vector<std::string>{"/a/B", "/a/a", "/a/b", "/z"}),
              ordered({"/z", "/a/b", "/a/a", "/a/B", "/z", "/a/b"}));
    EXPECT_EQ((std::vector<std::string>{}), ordered({}));
    // Byte order puts upper case and punctuation before lower case, and a prefix first.
    EXPECT_EQ((std::vector<std::string>{"/var/log/X", "/var/log/x", "/var/log/x.1", "/var/log/x1"}),
              ordered({"/var/log/x1", "/var/log/x.1", "/var/log/x", "/var/log/X"}));
}

TEST(OrderArchiveList, InstallerAndInterfaceLogsComeFirstLastMovedFirst) {
    std::list<std::string> entries = {
        "/var/opt/Brimwell/gatr/logs/gatr.log",
        "/opt/Brimwell/orb/log/orb_gui.log",
        "/var/log/brwinst.log",
        "/opt/Brimwell/orb/log/orb_virtualboot_gui.log",
        "/var/log/mntinst.log",
        "/opt/Brimwell/orb/log/orb_mount_gui.log",
        "/etc/hosts",
        "/var/log/brwinst.log",
    };
    EXPECT_EQ((std::vector<std::string>{
                  "/opt/Brimwell/orb/log/orb_virtualboot_gui.log",
                  "/opt/Brimwell/orb/log/orb_mount_gui.log",
                  "/opt/Brimwell/orb/log/orb_gui.log",
                  "/var/log/mntinst.log",
                  "/var/log/brwinst.log",
                  "/etc/hosts",
                  "/var/opt/Brimwell/gatr/logs/gatr.log",
              }),
              ordered(entries));
}

TEST(OrderArchiveList, OnlyTheFirstEntryHoldingANameMoves) {
    EXPECT_EQ((std::vector<std::string>{"/a/brwinst.log", "/a/0", "/b/brwinst.log.1"}),
              ordered({"/b/brwinst.log.1", "/a/brwinst.log", "/a/0"}));
    // "orb_gui.log" is also found inside a longer name; the first such entry moves.
    EXPECT_EQ((std::vector<std::string>{"/a/xorb_gui.log", "/b/orb_gui.log"}),
              ordered({"/b/orb_gui.log", "/a/xorb_gui.log"}));
}

TEST(BuildArchiveCommand, OrdinaryPathsGiveThePlainQuotedCommand) {
    char command[1024];
    buildArchiveCommand("/var/opt/Brimwell/gatr/gatr_web01_20240704T1125Z.tar.gz",
                        {"/etc/fstab", "/var/opt/Brimwell/gatr/logs/gatr.log"}, command,
                        sizeof command);
    EXPECT_STREQ(
        "tar czPf \"/var/opt/Brimwell/gatr/gatr_web01_20240704T1125Z.tar.gz\" "
        "--ignore-failed-read \"/var/log/messages\" \"/etc/fstab\" "
        "\"/var/opt/Brimwell/gatr/logs/gatr.log\" 1>/dev/null 2>&1",
        command);
}

TEST(BuildArchiveCommand, EmptyListStillPacksTheMessageLog) {
    char command[256];
    buildArchiveCommand("/o/a.tar.gz", {}, command, sizeof command);
    EXPECT_STREQ("tar czPf \"/o/a.tar.gz\" --ignore-failed-read \"/var/log/messages\" "
                 "1>/dev/null 2>&1",
                 command);
}

TEST(BuildArchiveCommand, HostilePathsAreEscapedInsideTheirQuotes) {
    char command[512];
    buildArchiveCommand("/o/a.tar.gz",
                        {"/var/log/app$(touch /tmp/pwned).log", "/tmp/q\"; reboot; \"",
                         "/tmp/`id`", "/tmp/back\\"},
                        command, sizeof command);
    EXPECT_STREQ("tar czPf \"/o/a.tar.gz\" --ignore-failed-read \"/var/log/messages\" "
                 "\"/var/log/app\\$(touch /tmp/pwned).log\" \"/tmp/q\\\"; reboot; \\\"\" "
                 "\"/tmp/\\`id\\`\" \"/tmp/back\\\\\" 1>/dev/null 2>&1",
                 command);
}

TEST(BuildArchiveCommand, EntriesThatDoNotFitWholeAreLeftOutAndTheRedirectionStays) {
    const std::string head =
        "tar czPf \"/o/a.tar.gz\" --ignore-failed-read \"/var/log/messages\"";
    const std::string tail = " 1>/dev/null 2>&1";
    // Room for exactly one entry of " \"/f/1\"" (7 bytes) plus the tail and the terminator.
    size_t size = head.size() + 7 + tail.size() + 1;
    std::vector<char> command(size + 6);
    buildArchiveCommand("/o/a.tar.gz", {"/f/1", "/f/2", "/f/3"}, command.data(), size);
    EXPECT_EQ(head + " \"/f/1\"" + tail, command.data());
    buildArchiveCommand("/o/a.tar.gz", {"/f/1", "/f/2", "/f/3"}, command.data(), size - 1);
    EXPECT_EQ(head + tail, command.data());
}

TEST(BuildArchiveCommand, NeverWritesPastTheBuffer) {
    std::list<std::string> entries;
    for (int i = 0; i < 2000; ++i) entries.push_back("/var/log/" + std::string(100, 'a' + i % 26));
    std::vector<char> command(131072 + 16, '#');
    buildArchiveCommand("/o/a.tar.gz", entries, command.data(), 131072);
    size_t length = strlen(command.data());
    EXPECT_LT(length, 131072u);
    EXPECT_EQ('#', command[131072]);
    EXPECT_EQ(" 1>/dev/null 2>&1", std::string(command.data() + length - 17));
}

TEST(BuildArchivePath, LowerCaseNodeNameAndUtcStamp) {
    snprintf(work::outputFolder, sizeof work::outputFolder, "%s", "/var/opt/Brimwell/gatr");
    snprintf(work::nodename, sizeof work::nodename, "%s", "WEB01.Example");
    char path[PATH_SIZE];
    // 2024-07-04T11:25:28Z
    buildArchivePath(path, sizeof path, 1720092328);
    EXPECT_STREQ("/var/opt/Brimwell/gatr/gatr_web01.example_20240704T1125Z.tar.gz", path);
    EXPECT_STREQ("web01.example", work::nodename);
    work::nodename[0] = '\0';
    work::outputFolder[0] = '\0';
}

TEST(CreateArchive, SkipEmptiesTheListAndPacksNothing) {
    CapturedErrorLog errors;
    work::archiveList = {"/etc/hosts", "/etc/fstab"};
    char path[PATH_SIZE] = {};
    EXPECT_FALSE(createArchive(true, path));
    EXPECT_TRUE(work::archiveList.empty());
    EXPECT_STREQ("", path);
    std::string text = errors.text();
    size_t first = text.find("archive creation commenced\n");
    size_t second = text.find("--no-archive option specified: no archive file will be generated\n");
    size_t third = text.find("archive creation completed\n");
    EXPECT_NE(std::string::npos, first) << text;
    EXPECT_LT(first, second) << text;
    EXPECT_LT(second, third) << text;
    EXPECT_NE(std::string::npos, third) << text;
}

}  // namespace
