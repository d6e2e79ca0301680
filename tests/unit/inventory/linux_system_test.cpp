// The SYSTEM figures whose exact text a recorded machine cannot vary: memory, uptime, boot time.
#include <vector>
#include "inventory/linux_system.h"
#include "test_support.h"

TEST(FormatMemory, MegabytesUpTo1024MiBAndSinglePrecisionGigabytesAbove) {
    const struct { unsigned long bytes; const char* want; } kCases[] = {
        {0, "0 MB"}, {512UL << 20, "512 MB"}, {1024UL << 20, "1024 MB"}, {1025UL << 20, "1.0 GB"},
        {(1024UL << 20) + 1048575, "1024 MB"},  // part of a MiB is dropped
        {1076UL << 20, "1.1 GB"}, {7782UL << 20, "7.6 GB"}, {1280UL << 20, "1.2 GB"},  // 1.25: a tie goes to even
        {67108916UL << 20, "65536.0 GB"},  // 65536.05 as a float loses the .05
    };
    for (const auto& c : kCases) {
        char text[64];
        formatMemory(c.bytes, text, sizeof text);
        EXPECT_STREQ(c.want, text) << c.bytes;
    }
}

TEST(SplitUptime, WholeDaysHoursAndMinutesAtEveryBoundary) {
    const struct { long seconds; std::vector<long> want; } kCases[] = {  // days, hours, minutes
        {0, {0, 0, 0}}, {59, {0, 0, 0}}, {60, {0, 0, 1}}, {3599, {0, 0, 59}}, {3600, {0, 1, 0}}, {3659, {0, 1, 0}},
        {3660, {0, 1, 1}}, {86399, {0, 23, 59}}, {86400, {1, 0, 0}}, {90061, {1, 1, 1}}, {31543439, {365, 2, 3}},
    };
    for (const auto& c : kCases) {
        const Uptime up = splitUptime(c.seconds);
        EXPECT_EQ(c.want, (std::vector<long>{up.days, up.hours, up.minutes})) << c.seconds;
    }
}

TEST(FormatBootTime, LocalTimeWithItsOffsetThenTheSameInstantInUtc) {
    const struct { const char* zone; time_t now; long uptime; const char* want; } kCases[] = {
        {"CET-1", 1709280902 + 3600, 3600, "2024-03-01T09:15:02+0100 (2024-03-01T08:15:02Z)"},
        {"UTC0", 2 * 86400, 90061, "1970-01-01T22:58:59+0000 (1970-01-01T22:58:59Z)"},
        {"<-0530>5:30", 1709280902, 0, "2024-03-01T02:45:02-0530 (2024-03-01T08:15:02Z)"},
    };
    for (const auto& c : kCases) {
        ts::EnvScope zone("TZ", c.zone);
        tzset();
        char text[160];
        formatBootTime(c.now, c.uptime, text, sizeof text);
        EXPECT_STREQ(c.want, text) << c.zone;
    }
    tzset();
}
