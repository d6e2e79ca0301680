// The backup product section's driver and its connection parameters. The product's files
// live at fixed paths, so these tests run in a private mount namespace.
#include <gtest/gtest.h>

#include <string>

#include "orb_test_support.h"
#include "products/orb.h"
#include "products/products.h"

namespace {

using orbtest::runWithPrivateOpt;
using orbtest::writeFile;

/// getOrbParameters with the given configuration file text (none when null); returns
/// "<port>|<token>|<version>".
std::string parameters(const char* config, int initialPort = 0) {
    return runWithPrivateOpt([&]() -> std::string {
        if (config != nullptr) writeFile(ORB_CONFIG_FILE, config);
        // Nothing listens on the configured ports here, so the version stays empty.
        FILE* errors = fopen("/dev/null", "w");
        work::errorsOs = errors;
        int port = initialPort;
        char token[64];
        char version[16];
        memset(token, 'x', sizeof token);
        memset(version, 'x', sizeof version);
        getOrbParameters(port, token, sizeof token, version, sizeof version);
        work::errorsOs = nullptr;
        fclose(errors);
        return std::to_string(port) + "|" + token + "|" + version;
    });
}

TEST(OrbParameters, PortAndTokenComeFromTheConfigurationFile) {
    struct Case {
        const char* name;
        std::string config;
        std::string want;
    };
    const std::string token63(63, 'a');
    const Case cases[] = {
        {"both set", R"({"rest_port":20443,"admin_token":"abc123"})", "20443|abc123|"},
        {"no port", R"({"admin_token":"abc123"})", "13581|abc123|"},
        {"port zero", R"({"rest_port":0,"admin_token":"abc123"})", "13581|abc123|"},
        {"port as text", R"({"rest_port":"20443","admin_token":"abc123"})", "13581|abc123|"},
        {"no token", R"({"rest_port":20443})", "20443||"},
        {"token of 63 kept", R"({"admin_token":")" + token63 + "\"}",
         "13581|" + token63 + "|"},
        {"token of 80 cut to 63", R"({"admin_token":")" + std::string(80, 'b') + "\"}",
         "13581|" + std::string(63, 'b') + "|"},
    };
    for (const Case& c : cases) {
        std::string got = parameters(c.config.c_str(), 7);
        if (got == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
        EXPECT_EQ(c.want, got) << c.name;
    }
}

TEST(OrbParameters, MissingOrBrokenConfigurationLeavesThePortAndEmptyTexts) {
    for (const char* config : {static_cast<const char*>(nullptr), "rest_port=1", "{"}) {
        std::string got = parameters(config, 7);
        if (got == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
        EXPECT_EQ("7||", got) << (config ? config : "no file");
    }
}

TEST(OrbSection, ProductNotInstalledWritesNoAndRecordsTheFacts) {
    std::string got = runWithPrivateOpt([]() -> std::string {
        work::settings.createDocument(JSON_OBJECT);
        work::settings.setValue<void*>("products", JSON_OBJECT, nullptr);
        work::detected = 0;
        work::hasOrbDebugOn = false;
        orbtest::MainLog log;
        orbtest::ErrorLog errors;
        enumerateOrb(true, true);
        char settings[1024] = {};
        work::settings.writeDocument(JSON_FORMAT_COMPACT, settings, sizeof settings);
        return log.text() + "|" + settings + "|" + std::to_string(work::detected) + "|" +
               (work::hasOrbDebugOn ? "debug" : "-") + "|" + errors.text();
    });
    if (got == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
    std::string rule(80, '-');
    EXPECT_EQ(0u, got.find(rule + "\nBRIMWELL IRONKEEP ORB\n\n"
                                  "Installed:            no\n\n"
                                  "|{\"products\":{\"orb\":{\"installed\":false,\"package\":null}}}"
                                  "|0|debug|"))
        << got;
    EXPECT_TRUE(orbtest::contains(got, " BRIMWELL IRONKEEP ORB section commenced\n"));
    EXPECT_TRUE(orbtest::contains(got, " BRIMWELL IRONKEEP ORB section completed\n"));
    EXPECT_EQ(std::string::npos, got.find("threads")) << "no thread dump without the product";
    EXPECT_EQ(std::string::npos, got.find("dependency")) << "no dependency list without the product";
}

}  // namespace
