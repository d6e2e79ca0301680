// The thread dump's file when the service cannot be reached, and when the file cannot be made.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

using orbtest::contains;
using orbtest::ErrorLog;
using orbtest::readFile;
using orbtest::TempFolder;

// Port 1 on the local host has no listener: every request is refused at once.
constexpr int kNoService = 1;

TEST(OrbThreadDump, UnreachableServiceLeavesHeadingAndThreeIterationLinesAndIsArchived) {
    TempFolder output;
    orbtest::OutputFolder folder(output.path());
    ErrorLog errors;
    generateOrbThreadDump(kNoService, "token-not-used-here", 0);
    std::string file = output.path() + "/logs/gatr_orb-threadsdump.log";
    std::string text = readFile(file);
    const std::regex layout(
        "ORB Threads Dump\n\n"
        "iteration 1 \\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\]\n"
        "iteration 2 \\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\]\n"
        "iteration 3 \\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\]\n");
    EXPECT_TRUE(std::regex_match(text, layout)) << text;
    EXPECT_EQ((std::list<std::string>{file}), work::archiveList);
    std::string log = errors.text();
    EXPECT_TRUE(contains(log, " information          --orb-threads option specified: ORB threads "
                              "dump will be generated\n"));
    EXPECT_EQ(std::string::npos, log.find("token-not-used-here"));
}

TEST(OrbThreadDump, FileThatCannotBeMadeIsLoggedAndNothingArchived) {
    TempFolder output;
    orbtest::OutputFolder folder(output.path() + "/gone");
    (void)!system(("rm -rf '" + output.path() + "/gone'").c_str());
    ErrorLog errors;
    generateOrbThreadDump(kNoService, "t", 0);
    EXPECT_TRUE(work::archiveList.empty());
    EXPECT_TRUE(contains(errors.text(), " ERROR                fopen on " + output.path() +
                                            "/gone/logs/gatr_orb-threadsdump.log failed: No such "
                                            "file or directory\n"));
}

}  // namespace
