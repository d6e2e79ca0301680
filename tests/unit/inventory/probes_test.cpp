// Process, executable, kernel-module and package probes: their exact main-log text.
#include "inventory/probes.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <sys/time.h>
#include <unistd.h>

#include "frame/work.h"
#include "products_test_support.h"

using namespace testsupport;

namespace {

/// Sets a file's modification time to a fixed UTC moment.
void setModificationTime(const std::string& path, int year, int month, int day, int hour,
                         int minute, int second) {
    struct tm when = {};
    when.tm_year = year - 1900;
    when.tm_mon = month - 1;
    when.tm_mday = day;
    when.tm_hour = hour;
    when.tm_min = minute;
    when.tm_sec = second;
    struct timeval times[2] = {};
    times[0].tv_sec = times[1].tv_sec = timegm(&when);
    ASSERT_EQ(0, utimes(path.c_str(), times));
}

class SeparatorScope {
public:
    explicit SeparatorScope(char separator) : saved(work::thousandsSeparator) {
        work::thousandsSeparator = separator;
    }
    ~SeparatorScope() { work::thousandsSeparator = saved; }

private:
    char saved;
};

/// Puts stand-in tools first on PATH for a test.
class StandIns {
public:
    StandIns() : path("PATH", (dir.path() + ":" + getenv("PATH")).c_str()) {}
    void tool(const char* name, const std::string& script) {
        writeFile(dir.file(name), "#!/bin/sh\n" + script, 0755);
    }
    TempDir dir;

private:
    EnvScope path;
};

TEST(GetPid, FindsAProcessWhoseCommandLineHoldsTheName) {
    TempDir dir;
    std::string name = uniqueName("pid");
    NamedSleeper sleeper(dir, name);
    EXPECT_EQ(sleeper.pid, getPid(name.c_str()));
    sleeper.stop();
    EXPECT_EQ(0, getPid(name.c_str()));
}

TEST(GetDaemon, RunningProcessShowsItsId) {
    TempDir dir;
    std::string name = uniqueName("daemon");
    NamedSleeper sleeper(dir, name);
    CapturedMainLog log;
    getDaemon(name.c_str());
    char want[512];
    snprintf(want, sizeof want, "%-20s  %s running, process ID %d\n\n", "Daemon:", name.c_str(),
             sleeper.pid);
    EXPECT_EQ(want, log.text());
}

TEST(GetDaemon, NoMatchingProcessIsNotRunning) {
    CapturedMainLog log;
    getDaemon(uniqueName("absent").c_str());
    EXPECT_EQ("Daemon:               " + uniqueName("absent") + " not running\n\n", log.text());
}

TEST(GetDaemon, PipelineThatCannotStartIsStateUnknown) {
    CapturedMainLog log;
    CapturedErrorLog errors;
    {
        FdLimitScope limit(0);
        getDaemon("watchpost-agent");
    }
    EXPECT_EQ("Daemon:               watchpost-agent state unknown\n\n", log.text());
    EXPECT_EQ(std::vector<std::string>{"popen to ps failed: Too many open files\n"},
              errorMessages(errors.text()));
}

TEST(GetDaemonModule, WritesFilenameDateAndGroupedSize) {
    struct Case {
        const char* name;
        off_t size;
        char separator;
        const char* shown;
    };
    const Case cases[] = {
        // Without a locale separator the NUL written between groups ends the text.
        {"small file, no separator", 1000, '\0', "1"},
        {"under a thousand, no separator", 999, '\0', "999"},
        {"small file, comma", 1000, ',', "1,000"},
        {"empty file", 0, ',', "0"},
        {"exactly 2^24", 16777216, ',', "16,777,216"},
        {"one past 2^24 rounds as a float", 16777217, ',', "16,777,216"},
        {"float rounding, no separator", 16777217, '\0', "16"},
        {"large file", 1234567891, ',', "1,234,567,936"},
    };
    for (const Case& c : cases) {
        TempDir dir;
        std::string path = dir.file("agent");
        writeFile(path, "");
        ASSERT_EQ(0, truncate(path.c_str(), c.size)) << c.name;
        setModificationTime(path, 2021, 3, 4, 5, 6, 7);
        SeparatorScope separator(c.separator);
        CapturedMainLog log;
        getDaemonModule("agentd", path.c_str());
        EXPECT_EQ("Daemon module: agentd\n"
                  "  filename:           " + path + "\n"
                  "  date:               2021-03-04T05:06:07Z\n"
                  "  size:               " + c.shown + " bytes\n\n",
                  log.text())
            << c.name;
    }
}

TEST(GetDaemonModule, MissingExecutableWritesTheFailureLine) {
    CapturedMainLog log;
    CapturedErrorLog errors;
    getDaemonModule("agentd", "/nonexistent/gatr-unit/agent");
    EXPECT_EQ("Daemon module: agentd\n"
              "  failed to retrieve data - refer to the gatr_errors.log for details\n\n",
              log.text());
    EXPECT_EQ(std::vector<std::string>{"call to stat() failed: No such file or directory\n"},
              errorMessages(errors.text()));
}

TEST(GetKernelModule, UnknownModuleShowsModinfoErrorUnderFilename) {
    CapturedMainLog log;
    getKernelModule("brwvsm");
    // The error text keeps modinfo's own newline, so a blank line follows it.
    EXPECT_EQ("Kernel module: brwvsm\n"
              "  filename:           Module brwvsm not found.\n\n"
              "  status:             not loaded\n\n",
              log.text());
}

TEST(GetKernelModule, RealModuleFileShowsItsInformationDateAndSize) {
    TempDir dir;
    std::string info = dir.file("modinfo.bin");
    std::string source = dir.file("m.c");
    std::string module = dir.file("brwtest.ko");
    static const char fields[] =
        "license=GPL\0description=Brimwell test module\0version=4.2.1\0depends=\0name=brwtest";
    writeFile(info, std::string(fields, sizeof fields));
    writeFile(source, "int brwtest_marker;\n");
    std::string build = "cc -c '" + source + "' -o '" + dir.path() + "/m.o' && " +
                        "objcopy --add-section .modinfo='" + info + "' '" + dir.path() + "/m.o' '" +
                        module + "'";
    ASSERT_EQ(0, std::system(build.c_str())) << "a compiler and objcopy are needed";
    setModificationTime(module, 2020, 1, 2, 3, 4, 5);
    struct stat st;
    ASSERT_EQ(0, stat(module.c_str(), &st));
    SeparatorScope separator(',');
    CapturedMainLog log;
    getKernelModule(module.c_str());
    char size[64];
    snprintf(size, sizeof size, "%lld", static_cast<long long>(st.st_size));
    std::string grouped = size;
    if (grouped.size() > 3) grouped.insert(grouped.size() - 3, ",");
    EXPECT_EQ("Kernel module: " + module + "\n"
              "  filename:           " + module + "\n"
              "  license:            GPL\n"
              "  description:        Brimwell test module\n"
              "  version:            4.2.1\n"
              "  depends:            \n"
              "  name:               brwtest\n"
              "  date:               2020-01-02T03:04:05Z\n"
              "  size:               " + grouped + " bytes\n"
              "  status:             not loaded\n\n",
              log.text());
}

TEST(GetKernelModule, ErrorLineIsShownUnderFilenameAndEndsTheInformation) {
    StandIns tools;
    tools.tool("modinfo", "echo 'filename:       /nonexistent/brwvsm.ko'\n"
                          "echo 'modinfo: ERROR: could not get modinfo from brwvsm: Bad file'\n"
                          "echo 'license:        GPL'\n");
    tools.tool("lsmod", "echo 'brwvsm                 98304  2'\n");
    CapturedMainLog log;
    getKernelModule("brwvsm");
    EXPECT_EQ("Kernel module: brwvsm\n"
              "  filename:           /nonexistent/brwvsm.ko\n"
              "  filename:           could not get modinfo from brwvsm: Bad file\n\n"
              "  status:             loaded\n\n",
              log.text())
        << "a file that cannot be found gives no date or size";
}

TEST(GetKernelModule, LastFilenameLineWinsAndUnterminatedLastLineIsDropped) {
    TempDir files;
    std::string first = files.file("first.ko");
    std::string second = files.file("second.ko");
    writeFile(first, std::string(10, 'x'));
    writeFile(second, std::string(20, 'y'));
    setModificationTime(second, 2019, 12, 31, 23, 59, 58);
    StandIns tools;
    tools.tool("modinfo", "echo 'filename:       " + first + "'\n"
                          "echo 'filename:       " + second + "'\n"
                          "printf 'signer:         dropped'\n");
    tools.tool("lsmod", "exit 1\n");
    CapturedMainLog log;
    getKernelModule("brwvsm");
    EXPECT_EQ("Kernel module: brwvsm\n"
              "  filename:           " + first + "\n"
              "  filename:           " + second + "\n"
              "  date:               2019-12-31T23:59:58Z\n"
              "  size:               20 bytes\n"
              "  status:             not loaded\n\n",
              log.text());
}

TEST(GetKernelModule, ModinfoThatCannotStartWritesTheFailureLineOnly) {
    CapturedMainLog log;
    CapturedErrorLog errors;
    {
        FdLimitScope limit(0);
        getKernelModule("brwvsm");
    }
    EXPECT_EQ("Kernel module: brwvsm\n"
              "  failed to retrieve data - refer to the gatr_errors.log for details\n\n",
              log.text());
    EXPECT_EQ(std::vector<std::string>{"popen to modinfo failed: Too many open files\n"},
              errorMessages(errors.text()));
}

TEST(GetDaemonPackage, NotInstalledGivesRpmsOwnMessage) {
    CapturedMainLog log;
    EXPECT_EQ("package gatr-unit-no-such-package is not installed\n",
              getDaemonPackage("gatr-unit-no-such-package"));
    EXPECT_EQ("\n", log.text());
}

TEST(GetDaemonPackage, LastCompleteLineIsTheResult) {
    struct Case {
        const char* name;
        const char* output;
        const char* want;
    };
    const Case cases[] = {
        {"one line", "printf 'agent-1.2-3.x86_64\\n'", "agent-1.2-3.x86_64\n"},
        {"two lines", "printf 'agent-1.2-3.x86_64\\nagent-1.3-1.x86_64\\n'",
         "agent-1.3-1.x86_64\n"},
        {"unterminated last line", "printf 'agent-1.2-3.x86_64\\npartial'", "agent-1.2-3.x86_64\n"},
        {"nothing printed", "true", ""},
    };
    for (const Case& c : cases) {
        StandIns tools;
        tools.tool("rpm", std::string(c.output) + "\n");
        CapturedMainLog log;
        EXPECT_EQ(c.want, getDaemonPackage("agent")) << c.name;
        EXPECT_EQ("\n", log.text()) << c.name;
    }
}

TEST(GetDaemonPackage, RpmThatCannotStartGivesAnEmptyResult) {
    CapturedMainLog log;
    CapturedErrorLog errors;
    std::string result = "unset";
    {
        FdLimitScope limit(0);
        result = getDaemonPackage("watchpost-agent");
    }
    EXPECT_EQ("", result);
    EXPECT_EQ("", log.text());
    EXPECT_EQ(std::vector<std::string>{"popen to rpm failed: Too many open files\n"},
              errorMessages(errors.text()));
}

}  // namespace
