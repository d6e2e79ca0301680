// The management agent and companion service sections: blocks, facts and detection bits.
#include "products/agent_section.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>

#include "common/string_helpers.h"
#include "frame/work.h"
#include "json/jsonparser.h"
#include "products/products.h"
#include "products_test_support.h"

using namespace testsupport;

namespace {

const std::string kRule(80, '-');

/// A fresh settings document holding an empty "products" object, the main log and error log
/// in memory, an empty archive list and no detection bits; all restored afterwards.
class SectionTest : public ::testing::Test {
protected:
    SectionTest() : outputScope(root.path()) {
        work::settings.createDocument(JSON_OBJECT);
        work::settings.setValue<void*>("products", JSON_OBJECT, nullptr);
        savedDetected = work::detected;
        work::detected = 0;
        savedList.swap(work::archiveList);
        mkdir((root.file("logs")).c_str(), 0755);
    }
    ~SectionTest() override {
        work::settings.cleanup();
        work::detected = savedDetected;
        work::archiveList.swap(savedList);
    }

    std::string notInstalledBlock(const char* banner) {
        return kRule + "\n" + banner + "\n\nInstalled:            no\n\n";
    }

    TempDir root;
    CapturedMainLog log;
    CapturedErrorLog errors;
    OutputFolderScope outputScope;
    uint64_t savedDetected = 0;
    std::list<std::string> savedList;
};

TEST_F(SectionTest, MissingExecutableGivesInstalledNoAndNullPackage) {
    AgentProduct product = {"BRIMWELL UNIT PRODUCT", "unit", "/nonexistent/gatr-unit/bin/agent",
                            0x8000, "gatr-unit-agent", "gatr-unit-agent", "/nonexistent"};
    enumerateAgentProduct(product);
    EXPECT_EQ(notInstalledBlock("BRIMWELL UNIT PRODUCT"), log.text());
    EXPECT_EQ(JSON_OBJECT, work::settings.getType("products->unit"));
    EXPECT_EQ(JSON_BOOLEAN, work::settings.getType("products->unit->installed"));
    EXPECT_FALSE(work::settings.getValue<bool>("products->unit->installed"));
    EXPECT_EQ(JSON_NULL, work::settings.getType("products->unit->package"));
    EXPECT_EQ(0u, work::detected);
    EXPECT_TRUE(work::archiveList.empty());
    EXPECT_EQ((std::vector<std::string>{"BRIMWELL UNIT PRODUCT section commenced",
                                        "BRIMWELL UNIT PRODUCT section completed"}),
              errorMessages(errors.text()));
}

TEST_F(SectionTest, InstalledProductGivesTheFullBlockFactsAndManifest) {
    std::string name = uniqueName("agent");
    std::string install = root.file("install");
    mkdir(install.c_str(), 0755);
    mkdir((install + "/logs").c_str(), 0755);
    writeFile(install + "/logs/agent.log", "started\n");
    writeFile(install + "/gatr_manifest.json", R"({"Linux": {"archive": {
        "files": ["%INSTALL%/logs/*.log"],
        "commands": [{"command": "echo listing", "file": "./logs/gatr_unit-listing.log",
                      "mode": "w"}]}}})");
    NamedSleeper daemon(root, name);
    std::string executable = daemon.path;
    struct timeval times[2] = {};
    times[0].tv_sec = times[1].tv_sec = 1600000000;  // 2020-09-13T12:26:40Z
    ASSERT_EQ(0, utimes(executable.c_str(), times));
    struct stat info;
    ASSERT_EQ(0, stat(executable.c_str(), &info));
    work::detected = 0x1;
    char savedSeparator = work::thousandsSeparator;
    work::thousandsSeparator = ',';

    AgentProduct product = {"BRIMWELL UNIT PRODUCT", "unit", executable.c_str(), 0x8000,
                            "gatr-unit-no-such-package", name.c_str(), install.c_str()};
    enumerateAgentProduct(product);

    char daemonLine[256];
    snprintf(daemonLine, sizeof daemonLine, "Daemon:               %s running, process ID %d\n\n",
             name.c_str(), daemon.pid);
    char size[64];
    snprintf(size, sizeof size, "%.0f", static_cast<double>(static_cast<float>(info.st_size)));
    format_number(size, sizeof size);
    work::thousandsSeparator = savedSeparator;
    EXPECT_EQ(kRule + "\nBRIMWELL UNIT PRODUCT\n\n"
                  "Installed:            yes\n\n"
                  "\n"
                  "Package:              package gatr-unit-no-such-package is not installed\n" +
                  daemonLine +
                  "Daemon module: " + name + "\n"
                  "  filename:           " + executable + "\n"
                  "  date:               2020-09-13T12:26:40Z\n"
                  "  size:               " + size + " bytes\n\n",
              log.text());
    EXPECT_TRUE(work::settings.getValue<bool>("products->unit->installed"));
    EXPECT_STREQ("package gatr-unit-no-such-package is not installed\n",
                 work::settings.getValue<char*>("products->unit->package"));
    EXPECT_EQ(0x8001u, work::detected);
    EXPECT_EQ((std::list<std::string>{install + "/logs/agent.log",
                                      root.path() + "/logs/gatr_unit-listing.log"}),
              work::archiveList);
    EXPECT_EQ("listing\n", readFile(root.file("logs/gatr_unit-listing.log")));
    EXPECT_EQ((std::vector<std::string>{"BRIMWELL UNIT PRODUCT section commenced",
                                        "BRIMWELL UNIT PRODUCT section completed"}),
              errorMessages(errors.text()));
}

TEST_F(SectionTest, ProductsNotOnThisMachineGiveTheirInstalledNoBlocks) {
    struct stat info;
    if (stat("/opt/Brimwell", &info) == 0) GTEST_SKIP() << "Brimwell products present here";
    enumerateTallyhub();
    enumerateWatchpost();
    EXPECT_EQ(notInstalledBlock("BRIMWELL TALLYHUB SERVICE") +
                  notInstalledBlock("BRIMWELL WATCHPOST"),
              log.text());
    for (const char* product : {"thb", "cmd"}) {
        std::string base = std::string("products->") + product;
        EXPECT_EQ(JSON_BOOLEAN, work::settings.getType((base + "->installed").c_str())) << product;
        EXPECT_FALSE(work::settings.getValue<bool>((base + "->installed").c_str())) << product;
        EXPECT_EQ(JSON_NULL, work::settings.getType((base + "->package").c_str())) << product;
    }
    EXPECT_EQ(0u, work::detected);
    EXPECT_EQ((std::vector<std::string>{"BRIMWELL TALLYHUB SERVICE section commenced",
                                        "BRIMWELL TALLYHUB SERVICE section completed",
                                        "BRIMWELL WATCHPOST section commenced",
                                        "BRIMWELL WATCHPOST section completed"}),
              errorMessages(errors.text()));
}

TEST_F(SectionTest, FactsOfAnEarlierRunAreOverwritten) {
    work::settings.setValue<void*>("products->cmd", JSON_OBJECT, nullptr);
    work::settings.setValue<bool>("products->cmd->installed", JSON_BOOLEAN, true);
    work::settings.setValue<char const*>("products->cmd->package", JSON_STRING, "old\n");
    AgentProduct product = {"BRIMWELL UNIT PRODUCT", "cmd", "/nonexistent/gatr-unit/bin/agent",
                            0x100, "x", "x", "/nonexistent"};
    enumerateAgentProduct(product);
    EXPECT_FALSE(work::settings.getValue<bool>("products->cmd->installed"));
    EXPECT_EQ(JSON_NULL, work::settings.getType("products->cmd->package"));
}

}  // namespace
