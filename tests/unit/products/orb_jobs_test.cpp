// The backup jobs report: job and state lines, destination lookup, labelled codes, volumes,
// and one whole job compared byte for byte.
#include <gtest/gtest.h>

#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

using orbtest::contains;
using orbtest::ErrorLog;
using orbtest::jobsText;
using orbtest::oneJob;

TEST(OrbJobs, NoJobsWritesASingleNewline) {
    EXPECT_EQ("\n", jobsText("[]"));
}

TEST(OrbJobs, JobLineShowsAPolicyOnlyWhenOneIsSet) {
    EXPECT_EQ(0u, oneJob(R"("name":"Nightly")").find("    Job:       Nightly\n"));
    EXPECT_EQ(0u, oneJob(R"("name":"Nightly","policy":"")").find("    Job:       Nightly\n"));
    EXPECT_EQ(0u, oneJob(R"("name":"Nightly","policy":"p-9")")
                      .find("    Job:       Nightly (Watchpost Policy)\n"));
}

TEST(OrbJobs, StateLineFollowsTheStateCode) {
    struct Case {
        const char* members;
        const char* line;
    };
    const Case cases[] = {
        {R"("info":{"current_state":0},"next_run":"2024-05-01T22:00:00")",
         "               queued, next run time is 22:00:00 on 2024-05-01\n"},
        {R"("info":{"current_state":0},"next_run":"")",
         "               queued, next run time is not scheduled\n"},
        {R"("info":{"current_state":0})", "               queued, next run time is not scheduled\n"},
        // Only 19 characters are kept: fractions and zones of the time are cut off.
        {R"("info":{"current_state":0},"next_run":"2024-12-31T23:59:58.123+02:00")",
         "               queued, next run time is 23:59:58 on 2024-12-31\n"},
        // A value too short to hold a time prints an empty time, never text past its end.
        {R"("info":{"current_state":0},"next_run":"soon")",
         "               queued, next run time is  on soon\n"},
        {R"("info":{"current_state":1})", "               running\n"},
        {R"("info":{"current_state":5})", "               paused\n"},
        {R"("info":{"current_state":3})", "               State: 3\n"},
        {R"("info":{"current_state":-2})", "               State: -2\n"},
        {R"()", "               queued, next run time is not scheduled\n"},
    };
    for (const Case& c : cases) {
        std::string text = oneJob(std::string(R"("name":"J")") + (*c.members ? "," : "") + c.members);
        EXPECT_EQ(std::string("    Job:       J\n") + c.line + "\n      Settings:\n",
                  text.substr(0, text.find("Settings:\n") + 10))
            << c.members;
    }
}

TEST(OrbJobs, DestinationIsLookedUpByExactUuidAndFirstMatchWins) {
    const std::string destinations =
        R"([{"uuid":"d-1","name":"Local disk","path":"/mnt/b"},)"
        R"({"uuid":"D-2","name":"Upper","path":"/upper"},)"
        R"({"uuid":"d-2","name":"Share","path":"//nas/x"},)"
        R"({"uuid":"d-2","name":"Second","path":"//nas/y"},)"
        R"({"uuid":"d-3","name":"","path":""}])";
    struct Case {
        const char* uuid;
        const char* block;
    };
    const Case cases[] = {
        {"d-1", "        Destination:         Local disk\n        Path:                /mnt/b\n\n"},
        {"d-2", "        Destination:         Share\n        Path:                //nas/x\n\n"},
        {"d-9", "        Destination:         n/a\n        Path:                n/a\n\n"},
        {"d-3", "        Destination:         n/a\n        Path:                n/a\n\n"},
        {"d", "        Destination:         n/a\n        Path:                n/a\n\n"},
    };
    for (const Case& c : cases) {
        std::string text = oneJob(std::string(R"("destination":")") + c.uuid + "\"", "[]", destinations);
        EXPECT_TRUE(contains(text, std::string("      Settings:\n") + c.block)) << c.uuid;
    }
}

TEST(OrbJobs, CompressionAndEncryptionShowTheirLabelsOrTheNumber) {
    struct Case {
        int compression;
        int encryption;
        const char* block;
    };
    const Case cases[] = {
        {0, 0, "        Compression:         none\n        Encryption:          none\n\n"},
        {5, 2, "        Compression:         Standard\n        Encryption:          RC4 128-bit (fast)\n\n"},
        {6, 3, "        Compression:         Best\n        Encryption:          AES 128-bit (more secure)\n\n"},
        {5, 4, "        Compression:         Standard\n        Encryption:          AES 256-bit (most secure)\n\n"},
        {1, 1, "        Compression:         1\n        Encryption:          1\n\n"},
        {4, 5, "        Compression:         4\n        Encryption:          5\n\n"},
        {-1, 99, "        Compression:         -1\n        Encryption:          99\n\n"},
    };
    for (const Case& c : cases) {
        std::string members = "\"settings\":{\"compression\":" + std::to_string(c.compression) +
                              ",\"encryption\":" + std::to_string(c.encryption) + "}";
        EXPECT_TRUE(contains(oneJob(members), std::string("n/a\n\n") + c.block))
            << c.compression << "/" << c.encryption;
    }
}

TEST(OrbJobs, CommentIsShownWholeAfterTheCodes) {
    std::string comment(5000, 'c');
    EXPECT_TRUE(contains(oneJob(R"("settings":{"comment":")" + comment + "\"}"),
                         "\n        Comment:             " + comment + "\n\n        Volumes:\n"));
}

TEST(OrbJobs, VolumeSchemeShowsItsLabelOrTheNumber) {
    const char* const labels[] = {"all volumes", "Operating System volumes", "data volumes",
                                  "custom", "4"};
    for (int scheme = 0; scheme <= 4; ++scheme) {
        std::string text = oneJob("\"settings\":{\"vol_scheme\":" + std::to_string(scheme) + "}");
        EXPECT_TRUE(contains(text, std::string("        Volumes:\n          Scheme:            ") +
                                       labels[scheme] + "\n\n      Schedule:\n"))
            << scheme;
    }
}

const char* const kVolumes =
    R"([{"uuid":"v-root","label":"root","device":"/dev/sda2","mountpoint":"/","filesystem":"xfs",)"
    R"("system":true,"boot":false},)"
    R"({"uuid":"v-boot","device":"/dev/sda1","mountpoint":"/boot","filesystem":"xfs",)"
    R"("system":true,"boot":true},)"
    R"({"uuid":"v-data","device":"/dev/mapper/data","mountpoint":"/srv/data","filesystem":"ext4",)"
    R"("system":false,"boot":true,"protected":true,"readonly":true,"removable":true},)"
    R"({"uuid":"v-bare"}])";

TEST(OrbJobs, VolumesShowDeviceMountPrefixFileSystemAndAttributes) {
    std::string text = oneJob(
        R"("volumes":[{"image_prefix":"root-img","vol_id":"v-root"},)"
        R"({"image_prefix":"boot","vol_id":"v-boot"},)"
        R"({"image_prefix":"a-prefix-longer-than-16","vol_id":"v-data"},)"
        R"({"image_prefix":"bare","vol_id":"v-bare"},)"
        R"({"image_prefix":"lost","vol_id":"v-unknown"}])",
        kVolumes);
    EXPECT_TRUE(contains(
        text,
        "          Scheme:            all volumes\n"
        "                             /dev/sda2 (/)                   root-img          xfs           Operating System\n"
        "                             /dev/sda1 (/boot)               boot              xfs           Operating System, Boot\n"
        "                             /dev/mapper/data (/srv/data)    a-prefix-longer-than-16  ext4          Data, Boot, Protected, Read Only, Removable\n"
        "                              ()                             bare                            Data\n"
        "                              ()                             lost                            \n"
        "\n"
        "      Schedule:\n"));
}

TEST(OrbJobs, VolumeWithoutIdIsLoggedAndSkipped) {
    ErrorLog errors;
    std::string text = jobsText(
        R"([{"name":"first"},{"name":"second","volumes":[{"image_prefix":"x"},)"
        R"({"image_prefix":"y","vol_id":""},{"image_prefix":"z","vol_id":"v-root"}]}])",
        kVolumes);
    EXPECT_TRUE(contains(text,
                         "          Scheme:            all volumes\n"
                         "                             /dev/sda2 (/)                   z                 xfs           Operating System\n"
                         "\n      Schedule:\n"));
    EXPECT_EQ(std::string::npos, text.find("  x  "));
    std::string log = errors.text();
    EXPECT_NE(std::string::npos,
              log.find(" warning              [1]->volumes[0]->vol_id returned empty string\n"))
        << log;
    EXPECT_NE(std::string::npos,
              log.find(" warning              [1]->volumes[1]->vol_id returned empty string\n"))
        << log;
}

TEST(OrbJobs, JobsFollowTheArrayOrderEachEndingWithABlankLine) {
    std::string text = jobsText(R"([{"name":"zeta"},{"name":"alpha"}])");
    size_t second = text.find("    Job:       alpha\n");
    ASSERT_NE(std::string::npos, second);
    EXPECT_LT(text.find("    Job:       zeta\n"), second);
    const std::string jobEnd = "          [ ]  Keep only recent images\n\n";
    EXPECT_EQ(jobEnd, text.substr(second - jobEnd.size(), jobEnd.size()));
    EXPECT_EQ(jobEnd, text.substr(text.size() - jobEnd.size()));
}

// A job with every block filled in, compared whole.
TEST(OrbJobs, WholeJobIsWrittenBlockByBlock) {
    std::string text = oneJob(
        R"("name":"Nightly system","info":{"current_state":0},"next_run":"2024-05-01T22:00:00",)"
        R"("destination":"d-1",)"
        R"("settings":{"compression":5,"encryption":4,"comment":"root and boot","vol_scheme":1,)"
        R"("sch_type":3,"io_throttle":50,"save_freespace":true,"ignore_read_fail":false,)"
        R"("start_job_cmd":{"timeout":330,"command":"/usr/local/bin/pre.sh","error_failure":true},)"
        R"("pre_snap_cmd":{"command":""},"post_snap_cmd":{"command":"sync"},)"
        R"("finish_job_cmd":{"command":""},)"
        R"("save_concurrent":true,"auto_exec_missed":false,"use_write_cache":true,)"
        R"("split_image_files":true,"split_file_size":4096,)"
        R"("retention":1,"retention_sets":7,"keep_all_fulls":true,"delete_before_full":false},)"
        R"("volumes":[{"image_prefix":"root","vol_id":"v-root"}],)"
        R"("schedule":{"rules":[{"frequency":0,"mode":0,"offsets":{"days":[0,5]},)"
        R"("start":"T22:00:00","interval":2}]})",
        kVolumes, R"([{"uuid":"d-1","name":"Local disk","path":"/mnt/backup"}])");
    EXPECT_EQ(
        "    Job:       Nightly system\n"
        "               queued, next run time is 22:00:00 on 2024-05-01\n"
        "\n"
        "      Settings:\n"
        "        Destination:         Local disk\n"
        "        Path:                /mnt/backup\n"
        "\n"
        "        Compression:         Standard\n"
        "        Encryption:          AES 256-bit (most secure)\n"
        "\n"
        "        Comment:             root and boot\n"
        "\n"
        "        Volumes:\n"
        "          Scheme:            Operating System volumes\n"
        "                             /dev/sda2 (/)                   root              xfs           Operating System\n"
        "\n"
        "      Schedule:\n"
        "          Type:              Mixed\n"
        "          Schedule:          Full: Weekly\n"
        "            [X] Sunday      [ ] Thursday  \n"
        "            [ ] Monday      [X] Friday    \n"
        "            [ ] Tuesday     [ ] Saturday  \n"
        "            [ ] Wednesday \n"
        "\n"
        "            Start time:      22:00\n"
        "\n"
        "            Repeat every:    other week\n"
        "\n"
        "      Advanced:\n"
        "        Performance:\n"
        "          Throttling: 50%\n"
        "\n"
        "          [X]  Save volume free space in images\n"
        "          [ ]  Ignore read failures during backup\n"
        "\n"
        "        Scripts:\n"
        "          Abort scripts that do not finish in 5 minutes\n"
        "\n"
        "          [X]  Start job script\n"
        "\n"
        "                /usr/local/bin/pre.sh\n"
        "\n"
        "                [X]  Fail backup if script is unsuccessful\n"
        "\n"
        "          [ ]  Pre-snapshot script\n"
        "          [X]  Post-snapshot script\n"
        "                sync\n"
        "\n"
        "                [ ]  Fail backup if script is unsuccessful\n"
        "\n"
        "          [ ]  Finish job script\n"
        "\n"
        "        Images:\n"
        "          [X]  Save volume images concurrently\n"
        "          [ ]  Immediately run missed backups on restart\n"
        "          [X]  Use write cache when saving images\n"
        "          [X]  Split image files into smaller files\n"
        "\n"
        "                Split file size 4096 MB\n"
        "\n"
        "        Retention:\n"
        "          [ ]  Keep all images\n"
        "          [X]  Keep only recent images\n"
        "\n"
        "               Retain 7 most recent image sets\n"
        "\n"
        "               [X]  Keep all full backups (delete only incrementals)\n"
        "               [ ]  Perform deletions before a full backup\n"
        "\n",
        text);
}

}  // namespace
