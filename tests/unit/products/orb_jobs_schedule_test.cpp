// The schedule block of the backup jobs report: type, rule lines, weekly and monthly grids,
// times and repeat lines.
#include <gtest/gtest.h>

#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

using orbtest::oneJob;

/// The lines between "      Schedule:\n" and "      Advanced:\n" for one job.
std::string schedule(const std::string& members) {
    std::string text = oneJob(members);
    size_t begin = text.find("      Schedule:\n");
    size_t end = text.find("      Advanced:\n");
    if (begin == std::string::npos || end == std::string::npos) return "<no block>\n" + text;
    begin += 16;
    return text.substr(begin, end - begin);
}

/// One rule's lines (after the "Type:" line, which is "Type: Full" here).
std::string rule(const std::string& ruleMembers) {
    std::string text =
        schedule(R"("settings":{"sch_type":2},"schedule":{"rules":[{)" + ruleMembers + "}]}");
    const std::string type = "          Type:              Full\n";
    if (text.compare(0, type.size(), type) != 0) return "<no type line>\n" + text;
    return text.substr(type.size());
}

const char* const kWeekGridSundayFridayTuesday =
    "            [X] Sunday      [ ] Thursday  \n"
    "            [ ] Monday      [X] Friday    \n"
    "            [X] Tuesday     [ ] Saturday  \n"
    "            [ ] Wednesday \n"
    "\n";

TEST(OrbJobSchedule, TypeShowsItsLabelOrTheNumber) {
    const char* const labels[] = {"0", "Full, Manual", "Full", "Mixed", "Continuous", "5"};
    for (int type = 0; type <= 5; ++type) {
        EXPECT_EQ(std::string("          Type:              ") + labels[type] + "\n",
                  schedule("\"settings\":{\"sch_type\":" + std::to_string(type) + "}"))
            << type;
    }
}

TEST(OrbJobSchedule, RuleWithoutDaysIsOnlyItsHeadingAndANewline) {
    EXPECT_EQ("          Schedule:          Full: Weekly\n\n",
              rule(R"("frequency":0,"mode":0,"start":"T10:00:00","interval":1)"));
    EXPECT_EQ("          Schedule:          Incremental: Monthly\n\n",
              rule(R"("frequency":1,"mode":1,"offsets":{"days":[],"months":[1]})"));
}

TEST(OrbJobSchedule, WeeklyFullRuleWithEveryInterval) {
    struct Case {
        int interval;
        const char* repeat;
    };
    const Case cases[] = {{1, "            Repeat every:    week\n"},
                          {2, "            Repeat every:    other week\n"},
                          {3, "            Repeat every:    third week\n"},
                          {0, ""},
                          {4, ""}};
    for (const Case& c : cases) {
        EXPECT_EQ(std::string("          Schedule:          Full: Weekly\n") +
                      kWeekGridSundayFridayTuesday +
                      "            Start time:      21:45\n"
                      "\n" +
                      c.repeat + "\n",
                  rule(R"("frequency":0,"mode":0,"offsets":{"days":[0,5,2,-1,9,-7]},)"
                       R"("start":"T21:45:30","interval":)" +
                       std::to_string(c.interval)))
            << c.interval;
    }
}

TEST(OrbJobSchedule, WeeklyIncrementalRuleRepeatsInMinutesOrHours) {
    struct Case {
        int repeats;
        const char* line;
    };
    const Case cases[] = {{45, "            Repeat every:    45 minutes\n"},
                          {59, "            Repeat every:    59 minutes\n"},
                          {60, "            Repeat every:    1 hour\n"},
                          {90, "            Repeat every:    1 hours\n"},
                          {150, "            Repeat every:    2 hours\n"},
                          {0, "            Repeat every:    0 minutes\n"}};
    for (const Case& c : cases) {
        EXPECT_EQ(std::string("          Schedule:          Incremental: Weekly\n") +
                      kWeekGridSundayFridayTuesday +
                      "            [X] From:        08:30 to 17:15\n"
                      "            [ ] All day     \n"
                      "\n" +
                      c.line + "\n",
                  rule(R"("frequency":0,"mode":1,"offsets":{"days":[0,2,5]},)"
                       R"("start":"T08:30:00","end":"T17:15:00","repeats":)" +
                       std::to_string(c.repeats)))
            << c.repeats;
    }
}

TEST(OrbJobSchedule, AllDayIncrementalRuleShowsTheDefaultRangeUnticked) {
    EXPECT_EQ("          Schedule:          Incremental: Weekly\n"
              "            [ ] Sunday      [X] Thursday  \n"
              "            [ ] Monday      [ ] Friday    \n"
              "            [ ] Tuesday     [ ] Saturday  \n"
              "            [X] Wednesday \n"
              "\n"
              "            [ ] From:        08:00 to 18:00\n"
              "            [X] All day     \n"
              "\n"
              "            Repeat every:    30 minutes\n"
              "\n",
              rule(R"("frequency":0,"mode":1,"offsets":{"days":[3,4]},)"
                   R"("start":"T00:00:00","end":"T23:59:00","repeats":30)"));
    // Only exactly midnight to 23:59 counts as all day.
    EXPECT_TRUE(orbtest::contains(
        rule(R"("frequency":0,"mode":1,"offsets":{"days":[3]},)"
             R"("start":"T00:00:00","end":"T23:59:59","repeats":30)"),
        "            [X] From:        00:00 to 23:59\n            [ ] All day     \n\n"));
}

TEST(OrbJobSchedule, WeeklyRuleOfAnotherModeHasNoRepeatLine) {
    EXPECT_EQ("          Schedule:          Incremental: Weekly\n"
              "            [ ] Sunday      [ ] Thursday  \n"
              "            [X] Monday      [ ] Friday    \n"
              "            [ ] Tuesday     [ ] Saturday  \n"
              "            [ ] Wednesday \n"
              "\n"
              "            [X] From:        06:00 to 07:00\n"
              "            [ ] All day     \n"
              "\n"
              "\n",
              rule(R"("frequency":0,"mode":2,"offsets":{"days":[1]},)"
                   R"("start":"T06:00:00","end":"T07:00:00","repeats":30,"interval":1)"));
}

const char* const kMonthGrid1st15thLast =
    "            [X] 1st     [ ] 12th    [ ] 23rd\n"
    "            [ ] 2nd     [ ] 13th    [ ] 24th\n"
    "            [ ] 3rd     [ ] 14th    [ ] 25th\n"
    "            [ ] 4th     [X] 15th    [ ] 26th\n"
    "            [ ] 5th     [ ] 16th    [ ] 27th\n"
    "            [ ] 6th     [ ] 17th    [ ] 28th\n"
    "            [ ] 7th     [ ] 18th    [ ] 29th\n"
    "            [ ] 8th     [ ] 19th    [ ] 30th\n"
    "            [ ] 9th     [ ] 20th    [ ] 31st\n"
    "            [ ] 10th    [ ] 21st\n"
    "            [ ] 11th    [ ] 22nd    [X] Last day of the month\n"
    "\n";

TEST(OrbJobSchedule, MonthlyFullRuleTicksDaysLastDayAndMonths) {
    EXPECT_EQ(std::string("          Schedule:          Full: Monthly\n") + kMonthGrid1st15thLast +
                  "            Start time:      01:30\n"
                  "\n"
                  "            Repeat every:    [X] Jan     [ ] Apr     [X] Jul     [ ] Oct \n"
                  "                             [ ] Feb     [X] May     [ ] Aug     [ ] Nov \n"
                  "                             [ ] Mar     [ ] Jun     [ ] Sep     [X] Dec \n"
                  "\n",
              rule(R"("frequency":1,"mode":0,"offsets":{"days":[1,15,-1,0,32],)"
                   R"("months":[1,5,7,12,0,13]},"start":"T01:30:00")"));
}

TEST(OrbJobSchedule, EveryDayOfTheMonthHasItsOrdinal) {
    std::string days;
    for (int d = 1; d <= 31; ++d) days += (d > 1 ? "," : "") + std::to_string(d);
    EXPECT_EQ("          Schedule:          Incremental: Monthly\n"
              "            [X] 1st     [X] 12th    [X] 23rd\n"
              "            [X] 2nd     [X] 13th    [X] 24th\n"
              "            [X] 3rd     [X] 14th    [X] 25th\n"
              "            [X] 4th     [X] 15th    [X] 26th\n"
              "            [X] 5th     [X] 16th    [X] 27th\n"
              "            [X] 6th     [X] 17th    [X] 28th\n"
              "            [X] 7th     [X] 18th    [X] 29th\n"
              "            [X] 8th     [X] 19th    [X] 30th\n"
              "            [X] 9th     [X] 20th    [X] 31st\n"
              "            [X] 10th    [X] 21st\n"
              "            [X] 11th    [X] 22nd    [ ] Last day of the month\n"
              "\n"
              "            [ ] From:        08:00 to 18:00\n"
              "            [X] All day     \n"
              "\n"
              "            Repeat every:    [ ] Jan     [ ] Apr     [ ] Jul     [ ] Oct \n"
              "                             [ ] Feb     [ ] May     [ ] Aug     [ ] Nov \n"
              "                             [ ] Mar     [ ] Jun     [ ] Sep     [ ] Dec \n"
              "\n",
              rule(R"("frequency":1,"mode":1,"offsets":{"days":[)" + days +
                   R"(]},"start":"T00:00:00","end":"T23:59:00")"));
}

TEST(OrbJobSchedule, OtherFrequenciesDrawTheDayGridWithoutRepeatLines) {
    EXPECT_EQ(std::string("          Schedule:          Full: Monthly\n") + kMonthGrid1st15thLast +
                  "            Start time:      \n"
                  "\n"
                  "\n",
              rule(R"("frequency":2,"mode":0,"offsets":{"days":[15,1,-1],"months":[1]})"));
}

TEST(OrbJobSchedule, RulesFollowEachOtherInOrder) {
    std::string text = schedule(
        R"("settings":{"sch_type":3},"schedule":{"rules":[)"
        R"({"frequency":0,"mode":0,"offsets":{"days":[]}},)"
        R"({"frequency":1,"mode":1,"offsets":{"days":[]}}]})");
    EXPECT_EQ("          Type:              Mixed\n"
              "          Schedule:          Full: Weekly\n"
              "\n"
              "          Schedule:          Incremental: Monthly\n"
              "\n",
              text);
}

}  // namespace
