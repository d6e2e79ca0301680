// Application manifests: file patterns, placeholders, commands and bad manifests.
#include "collect/manifest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "frame/work.h"
#include "json/jsonparser.h"
#include "products_test_support.h"

using namespace testsupport;

namespace {

std::vector<std::string> sorted(std::vector<std::string> items) {
    std::sort(items.begin(), items.end());
    return items;
}

/// A scratch output folder with its logs folder, an installation folder, a captured error log
/// and an archive list that starts empty; the list is restored afterwards.
class ManifestTest : public ::testing::Test {
protected:
    ManifestTest()
        : output(root.file("out")), install(root.file("install")), outputScope(output) {
        mkdir(output.c_str(), 0755);
        mkdir((output + "/logs").c_str(), 0755);
        mkdir(install.c_str(), 0755);
        saved.swap(work::archiveList);
    }
    ~ManifestTest() override { work::archiveList.swap(saved); }

    std::vector<std::string> gathered() const {
        return std::vector<std::string>(work::archiveList.begin(), work::archiveList.end());
    }
    std::vector<std::string> messages() { return errorMessages(errors.text()); }
    void writeManifest(const std::string& folder, const std::string& json) {
        std::system(("mkdir -p '" + folder + "'").c_str());
        writeFile(folder + "/gatr_manifest.json", json);
    }
    std::string manifestPath() const { return install + "/gatr_manifest.json"; }

    TempDir root;
    std::string output;
    std::string install;
    OutputFolderScope outputScope;
    CapturedErrorLog errors;
    std::list<std::string> saved;
};

class PatternTest : public ManifestTest {
protected:
    PatternTest() : logs(root.file("logs")) {
        mkdir(logs.c_str(), 0755);
        for (const char* name : {"app.log", "app.log.1", "application.txt", "other.log", "xappx",
                                 ".hidden.log", "odd*name"}) {
            writeFile(logs + "/" + name, "x\n");
        }
        mkdir((logs + "/apps").c_str(), 0755);
    }
    std::vector<std::string> in(std::initializer_list<const char*> names) const {
        std::vector<std::string> paths;
        for (const char* name : names) paths.push_back(logs + "/" + name);
        return sorted(paths);
    }
    std::string logs;
};

TEST_F(PatternTest, EachMatchKindSelectsItsEntries) {
    struct Case {
        const char* name;
        const char* pattern;
        std::vector<std::string> want;
    };
    const Case cases[] = {
        {"all", "*", in({"app.log", "app.log.1", "application.txt", "other.log", "xappx",
                         ".hidden.log", "odd*name", "apps"})},
        {"contains", "*pp*", in({"app.log", "app.log.1", "application.txt", "xappx", "apps"})},
        {"contains with a dot", "*.log.*", in({"app.log.1"})},
        {"suffix", "*.log", in({"app.log", "other.log", ".hidden.log"})},
        {"prefix, subfolders too", "app*", in({"app.log", "app.log.1", "application.txt", "apps"})},
        {"prefix and suffix", "app*.txt", in({"application.txt"})},
        {"prefix and suffix, one character each", "a*1", in({"app.log.1"})},
        {"only the first star counts", "*d*name", in({"odd*name"})},
        {"nothing matches", "zzz*", {}},
    };
    for (const Case& c : cases) {
        work::archiveList.clear();
        processManifestFile((logs + "/" + c.pattern).c_str(), install.c_str(), 0);
        EXPECT_EQ(c.want, sorted(gathered())) << c.name;
    }
    EXPECT_EQ(std::vector<std::string>{}, messages());
}

TEST_F(PatternTest, PatternWithoutStarIsAddedWithoutLookingAtTheDisk) {
    processManifestFile("/nonexistent/gatr-unit/app.log", install.c_str(), 7);
    processManifestFile((logs + "/app.log").c_str(), install.c_str(), 0);
    EXPECT_EQ((std::vector<std::string>{"/nonexistent/gatr-unit/app.log", logs + "/app.log"}),
              gathered());
}

TEST_F(PatternTest, PlaceholdersAreExpandedBeforeMatching) {
    std::system(("mkdir -p '" + install + "/log'").c_str());
    writeFile(install + "/log/a.log", "");
    writeFile(install + "/log/b.txt", "");
    EnvScope logsVariable("GATR_UNIT_LOGS", logs.c_str());
    EnvScope sudoUser("SUDO_USER", "alice");
    struct Case {
        const char* name;
        const char* pattern;
        std::vector<std::string> want;
    };
    const Case cases[] = {
        {"install folder", "%INSTALL%/log/*.log", {install + "/log/a.log"}},
        {"environment variable", "%GATR_UNIT_LOGS%/*.txt", in({"application.txt"})},
        {"home of the sudo user", "%HOME%/notes.txt", {"/home/alice/notes.txt"}},
        {"unset variable", "%GATR_UNIT_UNSET%/x.log", {"(null)/x.log"}},
    };
    for (const Case& c : cases) {
        work::archiveList.clear();
        processManifestFile(c.pattern, install.c_str(), 0);
        EXPECT_EQ(c.want, sorted(gathered())) << c.name;
    }
}

TEST_F(PatternTest, RootFolderPatternListsTheRoot) {
    processManifestFile("/tm*", install.c_str(), 0);
    EXPECT_EQ(std::vector<std::string>{"/tmp"}, gathered());
}

TEST_F(PatternTest, PatternWithoutSlashIsSkippedWithOneLine) {
    processManifestFile("app*.log", install.c_str(), 0);
    processManifestFile("%GATR_UNIT_UNSET%", install.c_str(), 1);
    EXPECT_TRUE(gathered().empty());
    EXPECT_EQ((std::vector<std::string>{
                  "file pattern app*.log has no folder part - pattern skipped\n",
                  "file pattern (null) has no folder part - pattern skipped\n"}),
              messages());
}

TEST_F(PatternTest, StarOutsideTheLastComponentIsSkippedWithOneLine) {
    std::string pattern = root.path() + "/*/app.log";
    processManifestFile(pattern.c_str(), install.c_str(), 0);
    EXPECT_TRUE(gathered().empty());
    EXPECT_EQ(std::vector<std::string>{"file pattern " + pattern +
                                       " has a '*' outside its last component - pattern skipped\n"},
              messages());
}

TEST_F(PatternTest, UnreadableFolderAddsNothing) {
    std::string folder = root.file("missing");
    processManifestFile((folder + "/*.log").c_str(), install.c_str(), 0);
    writeFile(root.file("plain"), "");
    processManifestFile((root.file("plain/*")).c_str(), install.c_str(), 0);
    EXPECT_TRUE(gathered().empty());
    EXPECT_EQ((std::vector<std::string>{"Invalid Handle for file " + folder + "\n",
                                        "Invalid Handle for file " + root.file("plain") + "\n"}),
              messages());
}

TEST_F(ManifestTest, NoManifestAnywhereIsOneWarning) {
    ChdirScope here(root.path());
    EXPECT_EQ(-1, processManifest(install.c_str(), "gatr-unit"));
    EXPECT_TRUE(gathered().empty());
    EXPECT_EQ(std::vector<std::string>{
                  "no application manifests found no log gathering will occur"},
              messages());
    EXPECT_EQ(std::vector<std::string>{"warning"}, errorStatuses(errors.text()));
}

TEST_F(ManifestTest, InstallationFolderManifestWinsOverTheShippedOne) {
    ChdirScope here(root.path());
    writeManifest(root.file("var/prod"),
                  R"({"Linux": {"archive": {"files": ["/shipped/one.log"]}}})");
    writeManifest(install, R"({"Linux": {"archive": {"files": ["/product/own.log"]}}})");
    EXPECT_EQ(0, processManifest(install.c_str(), "prod"));
    EXPECT_EQ(std::vector<std::string>{"/product/own.log"}, gathered());
}

TEST_F(ManifestTest, ShippedManifestIsUsedWhenTheProductHasNone) {
    ChdirScope here(root.path());
    writeManifest(root.file("var/prod"),
                  R"({"Linux": {"archive": {"files": ["/shipped/one.log",
                                                     "%INSTALL%/two.log"]}}})");
    EXPECT_EQ(0, processManifest(install.c_str(), "prod"));
    EXPECT_EQ((std::vector<std::string>{"/shipped/one.log", install + "/two.log"}), gathered());
    EXPECT_TRUE(messages().empty());
}

TEST_F(ManifestTest, CommandsWriteTheirOutputAndJoinTheArchive) {
    writeFile(output + "/logs/appended.txt", "old\n");
    writeFile(output + "/logs/overwritten.txt", "0123456789\n");
    writeManifest(install, R"({"Linux": {"archive": {
        "files": ["/product/own.log"],
        "commands": [
            {"command": "printf 'hello\\n'", "file": "./logs/hello.txt", "mode": "w"},
            {"command": "sh -c 'echo to-stderr >&2'", "file": "./logs/stderr.txt", "mode": "w"},
            {"command": "printf '2>&1\\n'; sh -c 'echo not-captured >&2'",
             "file": "./logs/unchanged.txt", "mode": "w"},
            {"command": "echo %INSTALL%", "file": "./logs/placeholder.txt", "mode": "w"},
            {"command": "echo new", "file": "./logs/appended.txt", "mode": "a"},
            {"command": "echo r+", "file": "./logs/overwritten.txt", "mode": "r+"},
            {"command": "echo absolute", "file": ")" + root.path() + R"(/absolute.txt",
             "mode": "w"},
            {"command": "echo backslash", "file": ".\\logs\\win.txt", "mode": "w"}
        ]}}})");
    EXPECT_EQ(0, processManifest(install.c_str(), "prod"));
    std::string win = output + "\\logs\\win.txt";
    EXPECT_EQ((std::vector<std::string>{"/product/own.log", output + "/logs/hello.txt",
                                        output + "/logs/stderr.txt",
                                        output + "/logs/unchanged.txt",
                                        output + "/logs/placeholder.txt",
                                        output + "/logs/appended.txt",
                                        output + "/logs/overwritten.txt",
                                        root.file("absolute.txt"), win}),
              gathered());
    EXPECT_EQ("hello\n", readFile(output + "/logs/hello.txt"));
    EXPECT_EQ("to-stderr\n", readFile(output + "/logs/stderr.txt")) << "\" 2>&1\" appended";
    EXPECT_EQ("2>&1\n", readFile(output + "/logs/unchanged.txt")) << "run unchanged";
    EXPECT_EQ(install + "\n", readFile(output + "/logs/placeholder.txt"));
    EXPECT_EQ("old\nnew\n", readFile(output + "/logs/appended.txt"));
    EXPECT_EQ("r+\n3456789\n", readFile(output + "/logs/overwritten.txt"))
        << "\"r+\" writes from the start";
    EXPECT_EQ("absolute\n", readFile(root.file("absolute.txt")));
    EXPECT_EQ("backslash\n", readFile(win));
    EXPECT_TRUE(messages().empty());
}

TEST_F(ManifestTest, FailingCommandIsLoggedNotArchivedAndTheNextOneRuns) {
    writeManifest(install, R"({"Linux": {"archive": {"commands": [
            {"command": "echo partial; false", "file": "./logs/failed.txt", "mode": "w"},
            {"command": "\x22/nonexistent/gatr unit/tool --x", "file": "./logs/quote.txt",
             "mode": "w"},
            {"command": "echo after", "file": "./logs/after.txt", "mode": "w"}
        ]}}})");
    EXPECT_EQ(0, processManifest(install.c_str(), "prod"));
    EXPECT_EQ(std::vector<std::string>{output + "/logs/after.txt"}, gathered());
    EXPECT_EQ("partial\n", readFile(output + "/logs/failed.txt"));
    EXPECT_EQ("after\n", readFile(output + "/logs/after.txt"));
    EXPECT_EQ((std::vector<std::string>{
                  "call to echo failed: exit code is 256\n",
                  "exception caught: malformed command: no closing double quote found"}),
              messages());
}

TEST_F(ManifestTest, IncompleteCommandEntriesAreSkippedWithOneLineEach) {
    writeManifest(install, R"({"Linux": {"archive": {"commands": [
            {"command": "echo no-file", "mode": "w"},
            {"command": "echo no-mode", "file": "./logs/no-mode.txt"},
            {"file": "./logs/no-command.txt", "mode": "w"},
            {"command": "echo read-mode", "file": "./logs/read.txt", "mode": "r"},
            {"command": "echo number-mode", "file": "./logs/number.txt", "mode": 1},
            {"command": "", "file": "./logs/empty.txt", "mode": "w"},
            {"command": "echo good", "file": "./logs/good.txt", "mode": "w"}
        ]}}})");
    EXPECT_EQ(0, processManifest(install.c_str(), "prod"));
    EXPECT_EQ(std::vector<std::string>{output + "/logs/good.txt"}, gathered());
    std::string m = "application manifest " + manifestPath() + ": Linux->archive->commands";
    EXPECT_EQ((std::vector<std::string>{
                  m + "[0]->file is missing or not a string - entry skipped\n",
                  m + "[1]->mode is missing or not a string - entry skipped\n",
                  m + "[2]->command is missing or not a string - entry skipped\n",
                  m + "[3]->mode \"r\" is not a writing mode - entry skipped\n",
                  m + "[4]->mode is missing or not a string - entry skipped\n",
                  "application manifest " + manifestPath() +
                      ": command 5 is empty - entry skipped\n"}),
              messages());
    for (const char* name : {"no-mode.txt", "no-command.txt", "read.txt", "number.txt",
                             "empty.txt"}) {
        EXPECT_FALSE(exists(output + "/logs/" + name)) << name;
    }
}

TEST_F(ManifestTest, PatternThatIsNotAStringIsSkippedAndTheRestGoesOn) {
    writeManifest(install,
                  R"({"Linux": {"archive": {"files": [12, "/product/own.log", {"a": 1}]}}})");
    EXPECT_EQ(0, processManifest(install.c_str(), "prod"));
    EXPECT_EQ(std::vector<std::string>{"/product/own.log"}, gathered());
    std::string m = "application manifest " + manifestPath() + ": Linux->archive->files";
    EXPECT_EQ((std::vector<std::string>{m + "[0] is missing or not a string - entry skipped\n",
                                        m + "[2] is missing or not a string - entry skipped\n"}),
              messages());
}

TEST_F(ManifestTest, ManifestThatDoesNotParseGathersNothing) {
    const char* texts[] = {
        "Linux: archive",
        R"({"Linux": {"archive": {"files": nil}}})",
        R"({"Linux": {"archive": {"files": ["/product/own.log"], "enabled": tru}}})",
        "",
    };
    for (const char* text : texts) {
        CapturedErrorLog caseErrors;
        work::archiveList.clear();
        writeManifest(install, text);
        EXPECT_EQ(-1, processManifest(install.c_str(), "prod")) << text;
        EXPECT_TRUE(gathered().empty()) << text;
        std::vector<std::string> lines = errorMessages(caseErrors.text());
        ASSERT_FALSE(lines.empty()) << text;
        EXPECT_EQ("application manifest " + manifestPath() +
                      " could not be loaded - no log gathering will occur\n",
                  lines.back())
            << text;
    }
}

TEST_F(ManifestTest, ManifestWithoutLinuxObjectGathersNothing) {
    const char* texts[] = {
        R"({"Windows": {"archive": {"files": ["C:\\logs\\a.log"]}}})",
        R"({"Linux": ["not", "an", "object"]})",
        R"([{"Linux": {"archive": {"files": ["/product/own.log"]}}}])",
    };
    for (const char* text : texts) {
        CapturedErrorLog caseErrors;
        work::archiveList.clear();
        writeManifest(install, text);
        EXPECT_EQ(0, processManifest(install.c_str(), "prod")) << text;
        EXPECT_TRUE(gathered().empty()) << text;
        EXPECT_EQ(std::vector<std::string>{
                      "application manifest " + manifestPath() +
                      " has no \"Linux\" object - no log gathering will occur\n"},
                  errorMessages(caseErrors.text()))
            << text;
    }
}

}  // namespace

namespace {

// The fallback manifests travel in the program's own var folder; the unit tests run from the
// staged program folder, where they are found as the program finds them.
TEST(ShippedManifest, EachProductsManifestLoadsAndEveryEntryIsComplete) {
    for (const char* product : {"orb", "cmd", "thb"}) {
        std::string path = std::string("./var/") + product + "/gatr_manifest.json";
        JsonDocument manifest;
        ASSERT_EQ(0, manifest.loadDocument(path.c_str())) << path;
        size_t files = manifest.getArraySize("Linux->archive->files[]");
        size_t commands = manifest.getArraySize("Linux->archive->commands[]");
        EXPECT_GE(files, 3u) << path;
        EXPECT_GE(commands, 3u) << path;
        char member[256];
        for (size_t i = 0; i < files; ++i) {
            snprintf(member, sizeof member, "Linux->archive->files[%zu]", i);
            std::string pattern = manifest.getValue<char*>(member);
            EXPECT_NE(std::string::npos, pattern.find('/')) << path << " " << member;
            EXPECT_EQ(std::string::npos, pattern.find("orb_config.json"))
                << path << ": the product configuration holds the admin token";
        }
        for (size_t i = 0; i < commands; ++i) {
            for (const char* key : {"command", "file", "mode"}) {
                snprintf(member, sizeof member, "Linux->archive->commands[%zu]->%s", i, key);
                EXPECT_EQ(JSON_STRING, manifest.getType(member)) << path << " " << member;
            }
            snprintf(member, sizeof member, "Linux->archive->commands[%zu]->file", i);
            EXPECT_EQ(0, std::string(manifest.getValue<char*>(member)).rfind("./logs/gatr_", 0))
                << path << " " << member << ": outputs go to the logs folder";
            snprintf(member, sizeof member, "Linux->archive->commands[%zu]->mode", i);
            std::string mode = manifest.getValue<char*>(member);
            EXPECT_TRUE(mode == "w" || mode == "a") << path << " " << member;
        }
    }
}

}  // namespace
