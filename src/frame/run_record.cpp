// The run record's collection and its JSON form. Byte counts pass 2^31 on a busy server, past
// what the settings document holds in a number, so the record writes its own JSON.
#include "frame/run_record.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <list>
#include <utility>

#include "frame/file.h"
#include "frame/logging.h"
#include "frame/work.h"
#include "privacy/json_text.h"

namespace {

struct SectionRecord {
    std::string name;
    std::string started;
    long long startMs = 0;
    long long milliseconds = -1;  // -1 while under way
    unsigned warnings = 0;
    unsigned errors = 0;
};

struct Record {
    std::string started;
    long long startMs = 0;
    std::list<SectionRecord> sections;
    std::list<CommandRecord> commands;
    std::list<MemberRecord> members;
    unsigned warnings = 0;
    unsigned errors = 0;
};

Record current;

long long monotonicMs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

const std::pair<uint64_t, const char*> OPTION_NAMES[] = {
    {OPT_SILENT, "silent"},           {OPT_NO_ARCHIVE, "no-archive"},
    {OPT_NO_CHECK, "no-check"},       {OPT_ORB_THREADS, "orb-threads"},
    {OPT_DEBUG_ARCHIVE, "debug-archive"}, {OPT_DRY_RUN, "dry-run"},
    {OPT_NORMAL_PRIORITY, "normal-priority"}, {OPT_OBFUSCATE, "obfuscate"},
    {OPT_ESTIMATE, "estimate"},
};

/// JSON text written with two-space indents, one member a line.
class JsonText {
public:
    void open(const char* name, char bracket) {
        member(name);
        text += bracket;
        first = true;
        ++depth;
    }
    void close(char bracket) {
        --depth;
        if (!first) newline();
        text += bracket;
        first = false;
    }
    void string(const char* name, const std::string& value) {
        member(name);
        privacy::appendJsonQuoted(text, value);
    }
    void number(const char* name, long long value) {
        member(name);
        text += std::to_string(value);
    }
    void unsignedNumber(const char* name, unsigned long long value) {
        member(name);
        text += std::to_string(value);
    }
    void boolean(const char* name, bool value) {
        member(name);
        text += value ? "true" : "false";
    }
    std::string done() { return text + "\n"; }

private:
    void newline() {
        text += '\n';
        text.append(static_cast<size_t>(depth) * 2, ' ');
    }
    /// A separator, the line break, and the name when inside an object (name is non-null).
    void member(const char* name) {
        if (depth > 0) {
            if (!first) text += ',';
            newline();
        }
        first = false;
        if (name != nullptr) {
            text += '"';
            text += name;
            text += "\": ";
        }
    }
    std::string text;
    int depth = 0;
    bool first = true;
};

void writeCounts(JsonText& json, const privacy::MaskCounts& counts) {
    json.open("masked", '{');
    for (int rule = 0; rule < privacy::MASK_RULE_COUNT; ++rule) {
        if (counts.byRule[rule] != 0) json.unsignedNumber(privacy::maskRuleName(rule), counts.byRule[rule]);
    }
    json.close('}');
}

void writeHeader(JsonText& json) {
    json.string("version", PROGRAM_VERSION);
    json.string("start", current.started);
    json.string("end", utcNow());
    json.number("milliseconds", monotonicMs() - current.startMs);
    json.open("options", '[');
    for (const auto& option : OPTION_NAMES) {
        if (work::options & option.first) json.string(nullptr, option.second);
    }
    json.close(']');
    json.open("limits", '{');
    json.number("command_seconds", work::limits.commandSeconds);
    json.number("archive_seconds", work::limits.archiveSeconds);
    json.number("transfer_stall_seconds", work::limits.transferStallSeconds);
    json.boolean("low_priority", work::limits.lowPriority && !(work::options & OPT_NORMAL_PRIORITY));
    json.boolean("mask_secrets", work::maskSecrets);
    if (work::limits.since > 0) {
        char since[32] = {};
        time_t cutoff = static_cast<time_t>(work::limits.since);
        struct tm utc = {};
        gmtime_r(&cutoff, &utc);
        strftime(since, sizeof since, "%Y-%m-%dT%H:%M:%SZ", &utc);
        json.string("since", since);
    }
    if (work::limits.maxLogBytes > 0) json.unsignedNumber("max_log_bytes", work::limits.maxLogBytes);
    json.close('}');
}

void writeSections(JsonText& json) {
    json.open("sections", '[');
    for (const SectionRecord& section : current.sections) {
        json.open(nullptr, '{');
        json.string("name", section.name);
        json.string("start", section.started);
        json.number("milliseconds", section.milliseconds);
        json.string("outcome", section.milliseconds < 0 ? "not finished"
                               : section.errors > 0     ? "completed with errors"
                               : section.warnings > 0   ? "completed with warnings"
                                                        : "completed");
        json.close('}');
    }
    json.close(']');
}

void writeCommands(JsonText& json) {
    json.open("commands", '[');
    for (const CommandRecord& command : current.commands) {
        json.open(nullptr, '{');
        json.string("command", command.line);
        json.string("start", command.started);
        json.number("milliseconds", command.milliseconds);
        if (command.signal != 0) {
            json.number("signal", command.signal);
        } else {
            json.number("exit_code", command.exitCode);
        }
        json.boolean("timed_out", command.timedOut);
        json.unsignedNumber("output_bytes", command.outputBytes);
        if (!command.outputFile.empty()) json.string("output_file", command.outputFile);
        json.close('}');
    }
    json.close(']');
}

/// The members, and the totals over them.
void writeMembers(JsonText& json, const std::list<MemberRecord>& expected) {
    unsigned long long read = 0;
    unsigned long long packed = 0;
    unsigned long long masked = 0;
    unsigned long long count = 0;
    std::list<MemberRecord> members = current.members;
    members.insert(members.end(), expected.begin(), expected.end());
    json.open("members", '[');
    for (const MemberRecord& member : members) {
        json.open(nullptr, '{');
        json.string("path", member.path);
        if (!member.leftOut.empty()) {
            json.string("left_out", member.leftOut);
        } else {
            ++count;
            json.unsignedNumber("bytes_read", member.bytesRead);
            json.unsignedNumber("bytes_packed", member.bytesPacked);
            json.boolean("cut", member.cut);
            if (member.cut) json.unsignedNumber("cut_from", member.cutFrom);
            writeCounts(json, member.masked);
            if (work::options & OPT_OBFUSCATE) {
                json.open("obfuscated", '{');
                for (int kind = 0; kind < privacy::OBF_KIND_COUNT; ++kind) {
                    if (member.obfuscated.byKind[kind] != 0)
                        json.unsignedNumber(privacy::obfuscationKindName(kind), member.obfuscated.byKind[kind]);
                }
                json.close('}');
            }
        }
        json.close('}');
        read += member.bytesRead;
        packed += member.bytesPacked;
        masked += member.masked.total();
    }
    json.close(']');
    json.open("totals", '{');
    json.unsignedNumber("members", count);
    json.unsignedNumber("bytes_read", read);
    json.unsignedNumber("bytes_packed", packed);
    json.unsignedNumber("masked", masked);
    json.number("warnings", current.warnings);
    json.number("errors", current.errors);
    json.close('}');
}

}  // namespace

std::string utcNow() {
    char stamp[32] = {};
    time_t now = time(nullptr);
    struct tm utc = {};
    gmtime_r(&now, &utc);
    strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return stamp;
}

void startRunRecord() {
    current = Record();
    current.started = utcNow();
    current.startMs = monotonicMs();
}

void recordSectionStart(const char* name) {
    SectionRecord section;
    section.name = name;
    section.started = utcNow();
    section.startMs = monotonicMs();
    current.sections.push_back(section);
}

void recordSectionEnd(const char* name) {
    for (auto it = current.sections.rbegin(); it != current.sections.rend(); ++it) {
        if (it->name == name && it->milliseconds < 0) {
            it->milliseconds = monotonicMs() - it->startMs;
            return;
        }
    }
}

void recordLogLine(bool error) {
    (error ? current.errors : current.warnings) += 1;
    if (current.sections.empty() || current.sections.back().milliseconds >= 0) return;
    (error ? current.sections.back().errors : current.sections.back().warnings) += 1;
}

void recordCommand(const CommandRecord& command) { current.commands.push_back(command); }

void recordMember(const MemberRecord& member) { current.members.push_back(member); }

char* runRecordPath(char* buffer, size_t size) {
    snprintf(buffer, size, "%s/logs/%s_run.json", work::outputFolder, PROGRAM_NAME);
    return buffer;
}

int keepRunRecord(const std::string& text) {
    char path[PATH_SIZE];
    runRecordPath(path, sizeof path);
    File file(path, "w");
    if (!file || fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
        file.close() != 0) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "fwrite on file %s failed: %s", path,
                 strerror(errno));
        return -1;
    }
    return 0;
}

std::string renderRunRecord(const std::list<MemberRecord>& expected) {
    JsonText json;
    json.open(nullptr, '{');
    writeHeader(json);
    writeSections(json);
    writeCommands(json);
    writeMembers(json, expected);
    json.close('}');
    return json.done();
}
