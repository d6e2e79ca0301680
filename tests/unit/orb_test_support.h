// Shared helpers of the backup product's unit tests: the main and error logs captured in
// memory, parsed answers from fixture text, and a private mount namespace for the code that
// reads or writes the product's fixed paths.
#pragma once

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "frame/work.h"
#include "json/jsonparser.h"
#include "products/orb.h"
#include "test_support.h"

namespace orbtest {

using MainLog = test_support::CapturedMainLog;
using ErrorLog = test_support::CapturedErrorLog;
using TempFolder = test_support::TempDir;

/// A document parsed from fixture text; the test fails when the text does not parse.
inline void load(JsonDocument& document, const std::string& text) {
    ASSERT_EQ(0, document.loadDocument(text.c_str(), text.size())) << text;
}

/// The jobs report's text for a backup answer, with the volume and destination answers that
/// its lookups use.
inline std::string jobsText(const std::string& backups, const std::string& volumes = "[]",
                            const std::string& destinations = "[]") {
    JsonDocument backupDocument;
    JsonDocument volumeDocument;
    JsonDocument destinationDocument;
    load(backupDocument, backups);
    load(volumeDocument, volumes);
    load(destinationDocument, destinations);
    MainLog log;
    writeOrbJobs(volumeDocument, destinationDocument, backupDocument);
    return log.text();
}

/// The text of one job whose only content is `members` (JSON object members, no braces).
inline std::string oneJob(const std::string& members, const std::string& volumes = "[]",
                          const std::string& destinations = "[]") {
    return jobsText("[{" + members + "}]", volumes, destinations);
}

/// True when text contains block; prints both otherwise.
inline ::testing::AssertionResult contains(const std::string& text, const std::string& block) {
    if (text.find(block) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "missing block:\n" << block << "\nin:\n" << text;
}

/// Points work::outputFolder at folder (with a "logs" folder made in it) for a test.
class OutputFolder {
public:
    explicit OutputFolder(const std::string& folder) {
        snprintf(saved, sizeof saved, "%s", work::outputFolder);
        snprintf(work::outputFolder, sizeof work::outputFolder, "%s", folder.c_str());
        (void)!system(("mkdir -p '" + folder + "/logs'").c_str());
        work::archiveList.clear();
    }
    ~OutputFolder() {
        snprintf(work::outputFolder, sizeof work::outputFolder, "%s", saved);
        work::archiveList.clear();
    }

private:
    char saved[PATH_SIZE] = {};
};

/// The whole file, or "<missing>" when it cannot be read.
inline std::string readFile(const std::string& path) {
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return "<missing>";
    std::string text;
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, got);
    fclose(file);
    return text;
}

/// Creates the file (parents made) with text and mode.
inline void writeFile(const std::string& path, const std::string& text, mode_t mode = 0644) {
    std::string folder = path.substr(0, path.rfind('/'));
    (void)!system(("mkdir -p '" + folder + "'").c_str());
    test_support::writeFile(path, text);
    chmod(path.c_str(), mode);
}

/// Runs body in a child process with its own mount namespace and fresh tmpfs over /opt,
/// /etc/opt and /var/opt, so that the product's fixed paths can be made and changed without
/// touching the machine. Returns what body returned; "<no namespace>" when the namespace
/// cannot be made (not root) and "<child failed>" when the child did not end normally.
inline std::string runWithPrivateOpt(const std::function<std::string()>& body) {
    int channel[2];
    if (pipe(channel) != 0) return "<no pipe>";
    pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        // A child that waits for an answer it never gets must not hang the suite.
        alarm(120);
        std::string result;
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            result = "<no namespace>";
        } else {
            for (const char* folder : {"/opt", "/etc/opt", "/var/opt"}) {
                mkdir(folder, 0755);
                if (mount("tmpfs", folder, "tmpfs", 0, nullptr) != 0) result = "<no namespace>";
            }
            if (result.empty()) result = body();
        }
        fflush(nullptr);
        (void)!write(channel[1], result.data(), result.size());
        close(channel[1]);
        _exit(0);
    }
    close(channel[1]);
    std::string result;
    char buffer[4096];
    ssize_t got;
    while ((got = read(channel[0], buffer, sizeof buffer)) > 0) result.append(buffer, got);
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "<child failed>";
    return result;
}

}  // namespace orbtest
