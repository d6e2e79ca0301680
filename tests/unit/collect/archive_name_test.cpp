// The archive's name: the UTC minute whatever the local zone, the lower-cased node name, and the
// next free number when earlier runs of the same minute left their archive or checksum.
#include <ctime>
#include <memory>
#include "collect/archive.h"
#include "collect/archive_publish.h"
#include "test_support.h"

TEST(ArchiveName, IsTheUtcMinuteAndTheNextFreeNumberOfIt) {
    ts::TempDir output;
    auto zone = std::make_unique<ts::EnvScope>("TZ", "CET-1");
    tzset();
    snprintf(work::outputFolder, sizeof work::outputFolder, "%s", output.path.c_str());
    snprintf(work::nodename, sizeof work::nodename, "%s", "WEB01");
    const time_t fixed = 1720092359;  // 2024-07-04 11:25:59 UTC, 12:25 in the zone
    const std::string stem = output.path + "/gatr_web01_20240704T1125Z";
    const struct { const char* taken; std::string want; } kCases[] = {
        {"", stem + ".tar.gz"},
        {"gatr_web01_20240704T1125Z.tar.gz", stem + "-2.tar.gz"},
        {"gatr_web01_20240704T1125Z-2.tar.gz.sha256", stem + "-3.tar.gz"},  // a checksum alone holds it
        {"gatr_web01_20240704T1126Z.tar.gz", stem + "-3.tar.gz"},           // another minute does not
    };
    for (const auto& c : kCases) {
        if (*c.taken != '\0') output.write(c.taken, "");
        char path[PATH_SIZE] = {};
        buildArchivePath(path, sizeof path, fixed);
        ASSERT_TRUE(chooseFreeArchivePath(path, sizeof path)) << c.taken;
        EXPECT_EQ(c.want, path) << c.taken;
    }
    EXPECT_STREQ("web01", work::nodename);
    zone.reset();
    tzset();
}
