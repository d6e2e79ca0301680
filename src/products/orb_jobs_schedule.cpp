// The schedule block of the backup jobs report: the schedule type and every rule, drawn as
// the check-box grids of the product's console.
#include <cstring>

#include "frame/i18n.h"
#include "products/orb_jobs.h"

namespace {

constexpr int FREQUENCY_WEEKLY = 0;
constexpr int FREQUENCY_MONTHLY = 1;
constexpr int MODE_FULL = 0;
constexpr int MODE_INCREMENTAL = 1;
constexpr int LAST_DAY_OF_MONTH = -1;
constexpr size_t TIME_SIZE = 32;

const char* scheduleTypeLabel(int code) {
    switch (code) {
    case 1: return _("Full, Manual");
    case 2: return _("Full");
    case 3: return _("Mixed");
    case 4: return _("Continuous");
    default: return nullptr;
    }
}

const char* intervalLabel(int interval) {
    switch (interval) {
    case 1: return _("week");
    case 2: return _("other week");
    case 3: return _("third week");
    default: return nullptr;
    }
}

const char* const WEEKDAYS[7] = {N_("Sunday"),   N_("Monday"), N_("Tuesday"), N_("Wednesday"),
                                 N_("Thursday"), N_("Friday"), N_("Saturday")};

const char* const DAY_ORDINALS[31] = {
    N_("1st"),  N_("2nd"),  N_("3rd"),  N_("4th"),  N_("5th"),  N_("6th"),  N_("7th"),
    N_("8th"),  N_("9th"),  N_("10th"), N_("11th"), N_("12th"), N_("13th"), N_("14th"),
    N_("15th"), N_("16th"), N_("17th"), N_("18th"), N_("19th"), N_("20th"), N_("21st"),
    N_("22nd"), N_("23rd"), N_("24th"), N_("25th"), N_("26th"), N_("27th"), N_("28th"),
    N_("29th"), N_("30th"), N_("31st")};

const char* const MONTHS[12] = {N_("Jan"), N_("Feb"), N_("Mar"), N_("Apr"), N_("May"), N_("Jun"),
                                N_("Jul"), N_("Aug"), N_("Sep"), N_("Oct"), N_("Nov"), N_("Dec")};

void writeWeekGrid(FILE* out, OrbJob& job, int rule, size_t days) {
    bool marks[7] = {};
    for (size_t d = 0; d < days; ++d) {
        int day = job.integer("schedule->rules[%d]->offsets->days[%zu]", rule, d);
        if (day >= 0 && day < 7) marks[day] = true;
    }
    auto mark = [&](int day) { return orbTickChar(marks[day]); };
    auto name = [](int day) { return _(WEEKDAYS[day]); };
    // Two columns as the console lays them out: Sunday to Wednesday, Thursday to Saturday.
    for (int row = 0; row < 3; ++row)
        fprintf(out, "            [%c] %-10s  [%c] %-10s\n", mark(row), name(row), mark(row + 4),
                name(row + 4));
    fprintf(out, "            [%c] %-10s\n\n", mark(3), name(3));
}

void writeMonthDayGrid(FILE* out, OrbJob& job, int rule, size_t days) {
    bool marks[31] = {};
    bool lastDay = false;
    for (size_t d = 0; d < days; ++d) {
        int day = job.integer("schedule->rules[%d]->offsets->days[%zu]", rule, d);
        if (day == LAST_DAY_OF_MONTH)
            lastDay = true;
        else if (day >= 1 && day <= 31)
            marks[day - 1] = true;
    }
    auto mark = [&](int day) { return orbTickChar(marks[day - 1]); };
    auto name = [](int day) { return _(DAY_ORDINALS[day - 1]); };
    // Three columns of eleven rows: day n stands in row (n-1) mod 11.
    for (int row = 1; row <= 9; ++row)
        fprintf(out, "            [%c] %-4s    [%c] %-4s    [%c] %-4s\n", mark(row), name(row),
                mark(row + 11), name(row + 11), mark(row + 22), name(row + 22));
    fprintf(out, "            [%c] %-4s    [%c] %-4s\n", mark(10), name(10), mark(21), name(21));
    fprintf(out, "            [%c] %-4s    [%c] %-4s    [%c] %-4s\n\n", mark(11), name(11),
            mark(22), name(22), orbTickChar(lastDay), _("Last day of the month"));
}

void writeTimes(FILE* out, OrbJob& job, int rule, int mode) {
    // Times arrive as "Thh:mm:ss"; the buffers are zero-filled, so +1 stays inside them.
    char start[TIME_SIZE] = {};
    char end[TIME_SIZE] = {};
    job.text(start, sizeof start, "schedule->rules[%d]->start", rule);
    job.text(end, sizeof end, "schedule->rules[%d]->end", rule);
    if (mode == MODE_FULL) {
        fprintf(out, "            %-16s %.5s\n\n", _("Start time:"), start + 1);
    } else if (strcmp(start, "T00:00:00") == 0 && strcmp(end, "T23:59:00") == 0) {
        // An all-day rule: the console shows its default range, unticked.
        fprintf(out, "            [ ] %-12s %.5s %s %.5s\n", _("From:"), "08:00", _("to"), "18:00");
        fprintf(out, "            [X] %-12s\n\n", _("All day"));
    } else {
        fprintf(out, "            [X] %-12s %.5s %s %.5s\n", _("From:"), start + 1, _("to"),
                end + 1);
        fprintf(out, "            [ ] %-12s\n\n", _("All day"));
    }
}

void writeRepeatMinutes(FILE* out, int minutes) {
    if (minutes < 60)
        fprintf(out, "            %-16s %d %s\n", _("Repeat every:"), minutes, _("minutes"));
    else if (minutes == 60)
        fprintf(out, "            %-16s %d %s\n", _("Repeat every:"), 1, _("hour"));
    else
        fprintf(out, "            %-16s %d %s\n", _("Repeat every:"), minutes / 60, _("hours"));
}

void writeMonthGrid(FILE* out, OrbJob& job, int rule) {
    bool marks[12] = {};
    size_t months = job.count("schedule->rules[%d]->offsets->months[]", rule);
    for (size_t m = 0; m < months; ++m) {
        int month = job.integer("schedule->rules[%d]->offsets->months[%zu]", rule, m);
        if (month >= 1 && month <= 12) marks[month - 1] = true;
    }
    for (int row = 0; row < 3; ++row) {
        fprintf(out, "            %-16s [%c] %-4s    [%c] %-4s    [%c] %-4s    [%c] %-4s\n",
                row == 0 ? _("Repeat every:") : "", orbTickChar(marks[row]), _(MONTHS[row]),
                orbTickChar(marks[row + 3]), _(MONTHS[row + 3]), orbTickChar(marks[row + 6]),
                _(MONTHS[row + 6]), orbTickChar(marks[row + 9]), _(MONTHS[row + 9]));
    }
}

void writeRepeat(FILE* out, OrbJob& job, int rule, int frequency, int mode) {
    if (frequency == FREQUENCY_WEEKLY && mode == MODE_FULL) {
        const char* label = intervalLabel(job.integer("schedule->rules[%d]->interval", rule));
        if (label != nullptr) fprintf(out, "            %-16s %s\n", _("Repeat every:"), label);
    } else if (frequency == FREQUENCY_WEEKLY && mode == MODE_INCREMENTAL) {
        writeRepeatMinutes(out, job.integer("schedule->rules[%d]->repeats", rule));
    } else if (frequency == FREQUENCY_MONTHLY) {
        writeMonthGrid(out, job, rule);
    }
    // Other weekly modes and other frequencies have no repeat line.
}

void writeRule(FILE* out, OrbJob& job, int rule) {
    int frequency = job.integer("schedule->rules[%d]->frequency", rule);
    int mode = job.integer("schedule->rules[%d]->mode", rule);
    fprintf(out, "          %-18s %s: %s\n", _("Schedule:"),
            mode == MODE_FULL ? _("Full") : _("Incremental"),
            frequency == FREQUENCY_WEEKLY ? _("Weekly") : _("Monthly"));
    size_t days = job.count("schedule->rules[%d]->offsets->days[]", rule);
    if (days >= 1) {
        if (frequency == FREQUENCY_WEEKLY)
            writeWeekGrid(out, job, rule, days);
        else
            writeMonthDayGrid(out, job, rule, days);
        writeTimes(out, job, rule, mode);
        writeRepeat(out, job, rule, frequency, mode);
    }
    fputc('\n', out);
}

}  // namespace

void writeOrbJobSchedule(FILE* out, OrbJob& job) {
    int type = job.integer("settings->sch_type");
    const char* label = scheduleTypeLabel(type);
    if (label != nullptr)
        fprintf(out, "          %-18s %s\n", _("Type:"), label);
    else
        fprintf(out, "          %-18s %d\n", _("Type:"), type);
    size_t rules = job.count("schedule->rules[]");
    for (size_t r = 0; r < rules; ++r) writeRule(out, job, static_cast<int>(r));
}
