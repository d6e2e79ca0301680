// The destinations report's rows, from parsed answers of the product's service.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

using orbtest::load;
using orbtest::MainLog;

std::string rows(const std::string& answer) {
    JsonDocument destinations;
    load(destinations, answer);
    MainLog log;
    writeOrbDestinations(destinations);
    return log.text();
}

TEST(OrbDestinations, EmptyArrayWritesOnlyTheClosingNewline) {
    EXPECT_EQ("\n", rows("[]"));
}

TEST(OrbDestinations, EachKindOfDestinationHasItsRow) {
    struct Case {
        const char* name;
        const char* entry;
        const char* row;
    };
    const Case cases[] = {
        {"default local volume: the mark stands before the path, no user",
         R"({"store_type":0,"name":"Daily images","path":"/mnt/backup","username":"leftover","is_default":true})",
         "    Local Volume          Daily images                             */mnt/backup                               \n"},
        {"network share shows its user",
         R"({"store_type":1,"name":"Office NAS","path":"//nas/images","username":"backup-svc","is_default":false})",
         "    Network Share         Office NAS                                //nas/images                              backup-svc\n"},
        {"unknown store type",
         R"({"store_type":7,"name":"Tape","path":"/dev/st0","username":"op"})",
         "    unknown               Tape                                      /dev/st0                                  \n"},
        {"policy-managed destination",
         R"({"store_type":1,"name":"Managed","path":"//srv/share","username":"alice","policy":"p-17"})",
         "    Network Share         Managed (Watchpost Policy)                //srv/share                               alice\n"},
        {"empty policy is no policy",
         R"({"store_type":1,"name":"Plain","path":"//srv/p","username":"bob","policy":""})",
         "    Network Share         Plain                                     //srv/p                                   bob\n"},
        {"missing keys read as a local volume without names",
         R"({})",
         "    Local Volume                                                                                              \n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(std::string(c.row) + "\n", rows(std::string("[") + c.entry + "]")) << c.name;
    }
}

TEST(OrbDestinations, RowsFollowTheArrayOrder) {
    std::string text = rows(R"([{"store_type":0,"name":"B","path":"/b"},)"
                            R"({"store_type":0,"name":"A","path":"/a"}])");
    EXPECT_LT(text.find(" B "), text.find(" A ")) << text;
    EXPECT_EQ(3u, std::count(text.begin(), text.end(), '\n'));
}

TEST(OrbDestinations, OverlongNameAndPathAreCutTo255) {
    std::string name(300, 'n');
    std::string path(300, 'p');
    std::string text = rows(R"([{"store_type":0,"name":")" + name + R"(","path":")" + path + R"("}])");
    std::string expected = "    Local Volume          " + std::string(255, 'n') + "  " +
                           std::string(255, 'p') + "  \n\n";
    EXPECT_EQ(expected, text);
}

TEST(OrbDestinations, PolicyMarkIsCutWithTheNameTo255) {
    std::string name(250, 'n');
    std::string text =
        rows(R"([{"store_type":0,"name":")" + name + R"(","path":"/p","policy":"x"}])");
    std::string kept = (name + " (Watchpost Policy)").substr(0, 255);
    EXPECT_EQ("    Local Volume          " + kept + "  /p" + std::string(38, ' ') + "  \n\n", text);
}

}  // namespace
