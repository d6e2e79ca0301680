// The texts of the case record: description, system block and installed block.
#include "support/case_update.h"

#include <gtest/gtest.h>

#include <string>

#include "frame/work.h"

namespace {

// Fills work::settings for one test and empties it afterwards.
class Settings {
public:
    Settings() {
        work::settings.createDocument(JSON_OBJECT);
        work::settings.setValue<void*>("system", JSON_OBJECT, nullptr);
        work::settings.setValue<void*>("products", JSON_OBJECT, nullptr);
    }
    ~Settings() { work::settings.cleanup(); }
    void set(const char* path, const char* value) {
        ASSERT_EQ(0, work::settings.setValue<const char*>(path, JSON_STRING, value)) << path;
    }
    void product(const char* name, bool installed, const char* package) {
        std::string base = std::string("products->") + name;
        work::settings.setValue<void*>(base.c_str(), JSON_OBJECT, nullptr);
        work::settings.setValue<bool>((base + "->installed").c_str(), JSON_BOOLEAN, installed);
        set((base + "->package").c_str(), package);
    }
};

std::string description(const char* archive, const char* url) {
    char text[CASE_TEXT_SIZE];
    buildCaseDescription(text, sizeof text, archive, "EU", url, "01234567");
    return text;
}

TEST(CaseDescription, NamesTheArchiveRegionAndDownloadUrl) {
    EXPECT_EQ("gatr archive file node_20240704T1125Z.tar.gz was uploaded to the EU FTP server.\n\n"
              "Download URL: ftp://eu.ftp.support.brimwell.com/01234567_node_20240704T1125Z.tar.gz",
              description("node_20240704T1125Z.tar.gz", "ftp://eu.ftp.support.brimwell.com"));
}

TEST(CaseDescription, SecureSchemeIsShownAsPlainFtp) {
    EXPECT_EQ("gatr archive file a.tar.gz was uploaded to the EU FTP server.\n\n"
              "Download URL: ftp://eu.example/01234567_a.tar.gz",
              description("a.tar.gz", "ftps://eu.example"));
}

TEST(CaseDescription, OverlongTextIsCut) {
    char text[40];
    buildCaseDescription(text, sizeof text, "a.tar.gz", "EU", "ftps://x", "01234567");
    EXPECT_EQ("gatr archive file a.tar.gz was uploaded", std::string(text));
}

TEST(SystemBlock, FourLabelledLinesAndABlankLine) {
    Settings settings;
    settings.set("system->operating_system", "CentOS Linux release 7.9.2009 (Core)");
    settings.set("system->version", "7.9.2009");
    settings.set("system->kernel", "3.10.0-1160.el7.x86_64");
    settings.set("system->platform", "VMware, Inc. VMware Virtual Platform");
    char text[CASE_TEXT_SIZE];
    buildSystemBlock(text, sizeof text);
    EXPECT_EQ("Operating system:    CentOS Linux release 7.9.2009 (Core)\n"
              "Version:             7.9.2009\n"
              "Kernel:              3.10.0-1160.el7.x86_64\n"
              "Platform:            VMware, Inc. VMware Virtual Platform\n\n",
              std::string(text));
}

TEST(SystemBlock, MissingFactsLeaveEmptyValues) {
    Settings settings;
    char text[CASE_TEXT_SIZE];
    buildSystemBlock(text, sizeof text);
    EXPECT_EQ("Operating system:    \nVersion:             \nKernel:              \n"
              "Platform:            \n\n",
              std::string(text));
}

TEST(InstalledBlock, NothingInstalledStillListsEveryGroup) {
    Settings settings;
    char text[CASE_TEXT_SIZE];
    buildInstalledBlock(text, sizeof text);
    EXPECT_EQ("BACKUP:\n\nCLOUD:\n\nMANAGE:\n\nRECOVERY:\n\nREPLICATE:\n\n", std::string(text));
}

TEST(InstalledBlock, InstalledProductsAreListedUnderTheirGroups) {
    Settings settings;
    settings.product("orb", true, "orb-10.0.2-1234.el7.x86_64");
    settings.product("thb", true, "tallyhub-service-3.1-7.x86_64");
    settings.product("cmd", true, "watchpost-agent-5.0.0-1.x86_64");
    char text[CASE_TEXT_SIZE];
    buildInstalledBlock(text, sizeof text);
    EXPECT_EQ("BACKUP:\n"
              "    Ironkeep ORB for Linux orb-10.0.2-1234.el7.x86_64\n"
              "    Brimwell Tallyhub Service for Linux tallyhub-service-3.1-7.x86_64\n"
              "\n"
              "CLOUD:\n\n"
              "MANAGE:\n"
              "    Watchpost endpoint watchpost-agent-5.0.0-1.x86_64\n"
              "\n"
              "RECOVERY:\n\nREPLICATE:\n\n",
              std::string(text));
}

TEST(InstalledBlock, ProductsNotInstalledAreLeftOutWhateverTheirPackage) {
    Settings settings;
    settings.product("orb", false, "orb-10.0.2-1234.el7.x86_64");
    settings.product("cmd", true, "watchpost-agent-5.0.0-1.x86_64");
    char text[CASE_TEXT_SIZE];
    buildInstalledBlock(text, sizeof text);
    EXPECT_EQ("BACKUP:\n\nCLOUD:\n\nMANAGE:\n    Watchpost endpoint watchpost-agent-5.0.0-1.x86_64\n"
              "\nRECOVERY:\n\nREPLICATE:\n\n",
              std::string(text));
}

}  // namespace
