// The end of a run: the settings file is replaced by the whole new document or not at all.
#include "frame/app.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "frame/work.h"
#include "json/jsonparser.h"
#include "test_support.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

// Loads work::settings for one test and empties it afterwards.
class SettingsScope {
public:
    explicit SettingsScope(const char* text) {
        EXPECT_EQ(0, work::settings.loadDocument(text, std::strlen(text)));
    }
    ~SettingsScope() { work::settings.cleanup(); }
};

// Files this process writes are limited to `bytes` while it lives: a write past the limit
// fails with EFBIG, as on a full disk, instead of raising SIGXFSZ.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &saved);
        previous = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = saved;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, previous);
    }

private:
    struct rlimit saved {};
    void (*previous)(int) = SIG_DFL;
};

const char* const kDocument = R"({"version":1,"last_archive_file":"/var/opt/a.tar.gz"})";
const char* const kPretty =
    "{\n    \"version\": 1,\n    \"last_archive_file\": \"/var/opt/a.tar.gz\"\n}\n";

TEST(WriteSettingsAtomically, ReplacesTheFileWithThePrettyDocumentAndLeavesNothingElse) {
    test_support::TempDir dir;
    const std::string path = dir.file(".settings");
    test_support::writeFile(path, "an older and longer settings file than the new one is");
    SettingsScope settings(kDocument);
    EXPECT_EQ(0, writeSettingsAtomically(path.c_str()));
    EXPECT_EQ(kPretty, readFile(path));
    EXPECT_EQ(std::vector<std::string>{".settings"}, namesIn(dir.path()));
}

TEST(WriteSettingsAtomically, AFailedWriteKeepsTheOldFileWhole) {
    struct Case {
        const char* name;
        bool limitFileSize;    // the write stops part-way, as on a full disk
        const char* subfolder;  // the settings file's folder, missing when not ""
        const char* message;    // the start of the logged message
    };
    const Case cases[] = {
        {"write stopped part-way", true, "", "fwrite on file "},
        {"temporary file cannot be created", false, "missing/", "fopen on "},
    };
    for (const auto& c : cases) {
        test_support::TempDir dir;
        const std::string path = dir.file(std::string(c.subfolder) + ".settings");
        const std::string old = "{\"version\":1,\"last_archive_file\":\"/var/opt/old.tar.gz\"}";
        if (c.subfolder[0] == '\0') test_support::writeFile(path, old);
        SettingsScope settings(kDocument);
        test_support::CapturedErrorLog log;
        int result;
        {
            std::unique_ptr<FileSizeLimit> limit;
            if (c.limitFileSize) limit = std::make_unique<FileSizeLimit>(16);
            result = writeSettingsAtomically(path.c_str());
        }
        EXPECT_EQ(-1, result) << c.name;
        if (c.subfolder[0] == '\0') {
            EXPECT_EQ(old, readFile(path)) << c.name;
            EXPECT_EQ(std::vector<std::string>{".settings"}, namesIn(dir.path())) << c.name;
        }
        EXPECT_NE(std::string::npos, log.text().find(c.message)) << c.name << ": " << log.text();
    }
}

}  // namespace
