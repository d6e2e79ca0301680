// The advanced block of the backup jobs report: performance, scripts with their differing
// line endings, images and retention.
#include <gtest/gtest.h>

#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

/// The lines from "      Advanced:\n" to the end of the job (its closing newline included).
std::string advanced(const std::string& settings) {
    std::string text = orbtest::oneJob("\"settings\":{" + settings + "}");
    size_t begin = text.find("      Advanced:\n");
    if (begin == std::string::npos) return "<no block>\n" + text;
    return text.substr(begin);
}

/// The lines from `first` up to (not including) `next`.
std::string between(const std::string& text, const std::string& first, const std::string& next) {
    size_t begin = text.find(first);
    size_t end = text.find(next, begin);
    if (begin == std::string::npos || end == std::string::npos) return "<not found>\n" + text;
    return text.substr(begin, end - begin);
}

/// The retention block to the end of the job.
std::string fromRetention(const std::string& text) {
    size_t begin = text.find("        Retention:\n");
    return begin == std::string::npos ? "<not found>\n" + text : text.substr(begin);
}

TEST(OrbJobAdvanced, MissingSettingsGiveEveryBoxBlankAndKeepAllImages) {
    EXPECT_EQ("      Advanced:\n"
              "        Performance:\n"
              "          Throttling: 0%\n"
              "\n"
              "          [ ]  Save volume free space in images\n"
              "          [ ]  Ignore read failures during backup\n"
              "\n"
              "        Scripts:\n"
              "          Abort scripts that do not finish in 0 minutes\n"
              "\n"
              "          [ ]  Start job script\n"
              "          [ ]  Pre-snapshot script\n"
              "          [ ]  Post-snapshot script\n"
              "          [ ]  Finish job script\n"
              "\n"
              "        Images:\n"
              "          [ ]  Save volume images concurrently\n"
              "          [ ]  Immediately run missed backups on restart\n"
              "          [ ]  Use write cache when saving images\n"
              "          [ ]  Split image files into smaller files\n"
              "\n"
              "        Retention:\n"
              "          [X]  Keep all images\n"
              "          [ ]  Keep only recent images\n"
              "\n",
              advanced(""));
}

TEST(OrbJobAdvanced, PerformanceShowsThrottlingAndBothBoxes) {
    EXPECT_EQ("      Advanced:\n"
              "        Performance:\n"
              "          Throttling: 75%\n"
              "\n"
              "          [ ]  Save volume free space in images\n"
              "          [X]  Ignore read failures during backup\n"
              "\n",
              between(advanced(R"("io_throttle":75,"save_freespace":false,"ignore_read_fail":true)"),
                      "      Advanced:\n", "        Scripts:\n"));
}

TEST(OrbJobAdvanced, ScriptTimeoutIsShownInWholeMinutes) {
    for (int seconds : {0, 59, 60, 119, 3600}) {
        EXPECT_TRUE(orbtest::contains(
            advanced("\"start_job_cmd\":{\"timeout\":" + std::to_string(seconds) + "}"),
            "          Abort scripts that do not finish in " + std::to_string(seconds / 60) +
                " minutes\n\n"))
            << seconds;
    }
}

TEST(OrbJobAdvanced, EachTickedScriptEndsItsLineAsTheConsoleDrawsIt) {
    EXPECT_EQ("          [X]  Start job script\n"
              "\n"
              "                /opt/hooks/start.sh --job nightly\n"
              "\n"
              "                [X]  Fail backup if script is unsuccessful\n"
              "\n"
              "          [X]  Pre-snapshot script\n"
              "\n"
              "                /opt/hooks/freeze.sh\n"
              "\n"
              "                [ ]  Fail backup if script is unsuccessful\n"
              "\n"
              "          [X]  Post-snapshot script\n"
              "                /opt/hooks/thaw.sh\n"
              "\n"
              "                [X]  Fail backup if script is unsuccessful\n"
              "\n"
              "          [X]  Finish job script\n"
              "                /opt/hooks/finish.sh\n"
              "\n"
              "                [ ]  Fail backup if script is unsuccessful\n"
              "\n",
              between(advanced(R"("start_job_cmd":{"command":"/opt/hooks/start.sh --job nightly",)"
                               R"("error_failure":true},)"
                               R"("pre_snap_cmd":{"command":"/opt/hooks/freeze.sh"},)"
                               R"("post_snap_cmd":{"command":"/opt/hooks/thaw.sh","error_failure":true},)"
                               R"("finish_job_cmd":{"command":"/opt/hooks/finish.sh"})"),
                      "          [X]  Start job script\n", "        Images:\n"));
}

TEST(OrbJobAdvanced, OnlyTheLastEmptyScriptClosesWithABlankLine) {
    EXPECT_EQ("          [ ]  Start job script\n"
              "          [X]  Pre-snapshot script\n"
              "\n"
              "                sync\n"
              "\n"
              "                [ ]  Fail backup if script is unsuccessful\n"
              "\n"
              "          [ ]  Post-snapshot script\n"
              "          [ ]  Finish job script\n"
              "\n",
              between(advanced(R"("pre_snap_cmd":{"command":"sync"},"post_snap_cmd":{"command":""})"),
                      "          [ ]  Start job script\n", "        Images:\n"));
}

TEST(OrbJobAdvanced, LongScriptCommandIsCutTo4095Characters) {
    std::string command(5000, 'x');
    std::string text = advanced(R"("finish_job_cmd":{"command":")" + command + "\"}");
    EXPECT_TRUE(orbtest::contains(text, "\n                " + command.substr(0, 4095) + "\n\n"));
    EXPECT_FALSE(orbtest::contains(text, command.substr(0, 4096)));
}

TEST(OrbJobAdvanced, ImagesShowTheSplitSizeOnlyWhenSplitting) {
    EXPECT_EQ("        Images:\n"
              "          [X]  Save volume images concurrently\n"
              "          [X]  Immediately run missed backups on restart\n"
              "          [X]  Use write cache when saving images\n"
              "          [X]  Split image files into smaller files\n"
              "\n"
              "                Split file size 650 MB\n"
              "\n",
              between(advanced(R"("save_concurrent":true,"auto_exec_missed":true,)"
                               R"("use_write_cache":true,"split_image_files":true,"split_file_size":650)"),
                      "        Images:\n", "        Retention:\n"));
    EXPECT_EQ("        Images:\n"
              "          [ ]  Save volume images concurrently\n"
              "          [ ]  Immediately run missed backups on restart\n"
              "          [ ]  Use write cache when saving images\n"
              "          [ ]  Split image files into smaller files\n"
              "\n",
              between(advanced(R"("split_image_files":false,"split_file_size":650)"), "        Images:\n",
                      "        Retention:\n"));
}

TEST(OrbJobAdvanced, RetentionOfRecentImagesShowsTheSetsAndBothOptions) {
    EXPECT_EQ("        Retention:\n"
              "          [ ]  Keep all images\n"
              "          [X]  Keep only recent images\n"
              "\n"
              "               Retain 3 most recent image sets\n"
              "\n"
              "               [ ]  Keep all full backups (delete only incrementals)\n"
              "               [X]  Perform deletions before a full backup\n"
              "\n",
              fromRetention(advanced(R"("retention":2,"retention_sets":3,"keep_all_fulls":false,)"
                                     R"("delete_before_full":true)")));
}

}  // namespace
