// Uptime arithmetic, memory and boot-time texts, and the release-file reading of SYSTEM.
#include "inventory/linux_system.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

TEST(SplitUptime, WholeDaysHoursAndMinutesWithoutSeconds) {
    struct Case {
        const char* name;
        long seconds;
        long days, hours, minutes;
    };
    const Case cases[] = {
        {"zero", 0, 0, 0, 0},
        {"59 s is under a minute", 59, 0, 0, 0},
        {"60 s is one minute", 60, 0, 0, 1},
        {"3599 s stays in minutes", 3599, 0, 0, 59},
        {"3600 s is one hour", 3600, 0, 1, 0},
        {"3659 s has no whole minute over the hour", 3659, 0, 1, 0},
        {"3660 s", 3660, 0, 1, 1},
        {"86399 s is the last second of day zero", 86399, 0, 23, 59},
        {"86400 s is one day", 86400, 1, 0, 0},
        {"90061 s", 90061, 1, 1, 1},
        {"a year", 365L * 86400 + 7200 + 180, 365, 2, 3},
    };
    for (const Case& c : cases) {
        Uptime up = splitUptime(c.seconds);
        EXPECT_EQ(c.days, up.days) << c.name;
        EXPECT_EQ(c.hours, up.hours) << c.name;
        EXPECT_EQ(c.minutes, up.minutes) << c.name;
    }
}

TEST(FormatMemory, MegabytesUpTo1024AndGigabytesAbove) {
    struct Case {
        const char* name;
        unsigned long bytes;
        const char* want;
    };
    const Case cases[] = {
        {"1024 MiB", 1024UL << 20, "1024 MB"},
        {"1025 MiB", 1025UL << 20, "1.0 GB"},
        {"512 MiB", 512UL << 20, "512 MB"},
        {"a part MiB is dropped", (512UL << 20) + 1048575, "512 MB"},
        {"16 GiB", 16384UL << 20, "16.0 GB"},
        {"7.6 GiB", 7782UL << 20, "7.6 GB"},
        {"nothing", 0, "0 MB"},
    };
    for (const Case& c : cases) {
        char text[64];
        formatMemory(c.bytes, text, sizeof text);
        EXPECT_STREQ(c.want, text) << c.name;
    }
}

// Runs a test body under a time zone and restores the one before.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        const char* old = getenv("TZ");
        hadOld = old != nullptr;
        if (hadOld) saved = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        if (hadOld) setenv("TZ", saved.c_str(), 1); else unsetenv("TZ");
        tzset();
    }

private:
    bool hadOld = false;
    std::string saved;
};

TEST(FormatBootTime, LocalTimeWithOffsetAndTheSameInstantInUtc) {
    TimeZone zone("CET-1");
    // 2024-03-01T08:15:02Z plus one hour of uptime.
    time_t now = 1709280902 + 3600;
    char text[160];
    formatBootTime(now, 3600, text, sizeof text);
    EXPECT_STREQ("2024-03-01T09:15:02+0100 (2024-03-01T08:15:02Z)", text);
}

TEST(FormatBootTime, UtcZoneShowsZeroOffset) {
    TimeZone zone("UTC0");
    char text[160];
    formatBootTime(86400 * 2, 90061, text, sizeof text);
    EXPECT_STREQ("1970-01-01T22:58:59+0000 (1970-01-01T22:58:59Z)", text);
}

TEST(ParseOsReleaseLine, LastLineWinsAndDescriptionIsUnquoted) {
    struct Case {
        const char* name;
        const char* lines[5];
        const char* want;
    };
    const Case cases[] = {
        {"centos line", {"CentOS Linux release 7.9.2009 (Core)\n"},
         "CentOS Linux release 7.9.2009 (Core)"},
        {"ubuntu lsb file",
         {"DISTRIB_ID=Ubuntu\n", "DISTRIB_RELEASE=22.04\n", "DISTRIB_CODENAME=jammy\n",
          "DISTRIB_DESCRIPTION=\"Ubuntu 22.04.4 LTS\"\n"},
         "Ubuntu 22.04.4 LTS"},
        {"a line after the description wins",
         {"DISTRIB_DESCRIPTION=\"Ubuntu 22.04.4 LTS\"\n", "trailing\n"}, "trailing"},
        {"an empty line leaves the text", {"Rocky Linux release 9.3 (Blue Onyx)\n", "\n"},
         "Rocky Linux release 9.3 (Blue Onyx)"},
        {"carriage return is not kept", {"Oracle Linux Server release 8.9\r\n"},
         "Oracle Linux Server release 8.9"},
        {"an unquoted description leaves the text", {"first\n", "DISTRIB_DESCRIPTION=plain\n"},
         "first"},
        {"no line at all", {}, ""},
    };
    for (const Case& c : cases) {
        char release[256] = {};
        for (const char* line : c.lines) {
            if (line != nullptr) parseOsReleaseLine(line, release);
        }
        EXPECT_STREQ(c.want, release) << c.name;
    }
}

TEST(ParseOsReleaseLine, OverlongLineIsCutAt255Characters) {
    std::string line(400, 'x');
    line += "\n";
    char release[256];
    memset(release, 'z', sizeof release);
    release[255] = '\0';
    parseOsReleaseLine(line.c_str(), release);
    EXPECT_EQ(std::string(255, 'x'), release);
}

}  // namespace
