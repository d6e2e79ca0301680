// Test support for the product probes, manifests and sections, on top of the shared helpers:
// error-log lines parsed, scoped changes to the environment, the working folder, the fd limit
// and the output folder, and processes that carry a chosen name.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "frame/work.h"
#include "test_support.h"

namespace testsupport {

using test_support::CapturedErrorLog;
using test_support::CapturedMainLog;
using test_support::TempDir;
using test_support::writeFile;

struct ErrorLine {
    std::string status;   // the status word, trimmed
    std::string message;  // a message that ended in a newline gets it back (the log shows an
                          // empty line after it)
};

/// The error-log lines in `text`, in order; a line out of format fails the test.
inline std::vector<ErrorLine> errorLines(const std::string& text) {
    static const std::regex line(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d .{16} \[.{5}\] (\S+) *.*$)");
    std::vector<ErrorLine> lines;
    std::istringstream in(text);
    std::string raw;
    while (std::getline(in, raw)) {
        std::smatch m;
        if (std::regex_match(raw, m, line) && raw.size() > 66) {
            lines.push_back({m[1], raw.substr(66)});
        } else if (raw.empty() && !lines.empty()) {
            lines.back().message += "\n";
        } else {
            ADD_FAILURE() << "error-log line out of format: " << raw;
        }
    }
    return lines;
}

inline std::vector<std::string> errorMessages(const std::string& text) {
    std::vector<std::string> messages;
    for (const ErrorLine& l : errorLines(text)) messages.push_back(l.message);
    return messages;
}

inline std::vector<std::string> errorStatuses(const std::string& text) {
    std::vector<std::string> words;
    for (const ErrorLine& l : errorLines(text)) words.push_back(l.status);
    return words;
}

/// Writes a file and gives it the mode (an executable script, for instance).
inline void writeFile(const std::string& path, const std::string& text, mode_t mode) {
    test_support::writeFile(path, text);
    chmod(path.c_str(), mode);
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

inline bool exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

using test_support::EnvScope;

/// Changes the working folder and goes back afterwards.
class ChdirScope {
public:
    explicit ChdirScope(const std::string& path) {
        char buffer[4096] = {};
        if (getcwd(buffer, sizeof buffer) != nullptr) saved = buffer;
        EXPECT_EQ(0, chdir(path.c_str())) << path;
    }
    ~ChdirScope() {
        if (!saved.empty() && chdir(saved.c_str()) != 0) ADD_FAILURE() << "chdir back failed";
    }

private:
    std::string saved;
};

/// Lowers the open-files limit so that at most `free` more descriptors can be opened: a pipe
/// (two descriptors) then fails as it does on a machine out of descriptors.
class FdLimitScope {
public:
    explicit FdLimitScope(int free) {
        getrlimit(RLIMIT_NOFILE, &saved);
        int lowest = dup(0);
        close(lowest);
        struct rlimit limit = saved;
        limit.rlim_cur = static_cast<rlim_t>(lowest + free);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~FdLimitScope() { setrlimit(RLIMIT_NOFILE, &saved); }

private:
    struct rlimit saved = {};
};

/// Sets work::outputFolder for a test and restores it.
class OutputFolderScope {
public:
    explicit OutputFolderScope(const std::string& path) {
        snprintf(saved, sizeof saved, "%s", work::outputFolder);
        snprintf(work::outputFolder, sizeof work::outputFolder, "%s", path.c_str());
    }
    ~OutputFolderScope() { snprintf(work::outputFolder, sizeof work::outputFolder, "%s", saved); }

private:
    char saved[PATH_SIZE] = {};
};

/// A copy of sleep under a name of our own, so a process listing shows that name.
class NamedSleeper {
public:
    NamedSleeper(const TempDir& dir, const std::string& name) {
        path = dir.file(name);
        EXPECT_EQ(0, std::system(("cp \"$(command -v sleep)\" '" + path + "'").c_str()));
        pid = fork();
        if (pid == 0) {
            execl(path.c_str(), path.c_str(), "60", static_cast<char*>(nullptr));
            _exit(127);
        }
        // Wait until the child has become the sleeper, so the listing shows its new name.
        std::string link = "/proc/" + std::to_string(pid) + "/exe";
        char target[4096];
        for (int i = 0; i < 500; ++i) {
            ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
            if (n > 0 && std::string(target, static_cast<size_t>(n)) == path) break;
            usleep(10000);
        }
    }
    ~NamedSleeper() { stop(); }
    void stop() {
        if (pid <= 0) return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        pid = 0;
    }
    pid_t pid = 0;
    std::string path;
};

/// A name no other process on the machine carries.
inline std::string uniqueName(const char* what) {
    return std::string("gatr-unit-") + what + "-" + std::to_string(getpid());
}

}  // namespace testsupport
