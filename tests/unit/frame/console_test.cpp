// The console progress bar and the yes/no confirmation, with standard output captured in a
// file and standard input read from one.
#include "frame/console.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "frame/work.h"
#include "test_support.h"

namespace {

// Sends standard output to a temporary file while it lives.
class CapturedStdout {
public:
    CapturedStdout() : path(dir.file("stdout")) {
        std::fflush(stdout);
        saved = dup(STDOUT_FILENO);
        fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        dup2(fd, STDOUT_FILENO);
    }
    ~CapturedStdout() {
        restore();
        close(fd);
    }
    /// Everything written so far; standard output goes back to where it was.
    std::string text() {
        restore();
        std::string result;
        char chunk[4096];
        lseek(fd, 0, SEEK_SET);
        ssize_t got;
        while ((got = read(fd, chunk, sizeof chunk)) > 0) result.append(chunk, static_cast<size_t>(got));
        return result;
    }

private:
    void restore() {
        if (saved < 0) return;
        std::fflush(stdout);
        dup2(saved, STDOUT_FILENO);
        close(saved);
        saved = -1;
    }
    test_support::TempDir dir;
    std::string path;
    int saved = -1;
    int fd = -1;
};

// Feeds standard input from a temporary file holding `content` while it lives.
class FedStdin {
public:
    explicit FedStdin(const std::string& content) {
        test_support::writeFile(dir.file("stdin"), content);
        EXPECT_NE(nullptr, std::freopen(dir.file("stdin").c_str(), "r", stdin));
    }
    ~FedStdin() { std::freopen("/dev/null", "r", stdin); }

private:
    test_support::TempDir dir;
};

class OptionsGuard {
public:
    OptionsGuard() : saved(work::options) {}
    ~OptionsGuard() { work::options = saved; }

private:
    uint64_t saved;
};

std::string bar(int percent, int stars, char spinner, int spaces) {
    char head[16];
    std::snprintf(head, sizeof head, "\r%3d%% [", percent);
    std::string text = head + std::string(static_cast<size_t>(stars), '*');
    if (spinner != '\0') text += spinner;
    return text + std::string(static_cast<size_t>(spaces), ' ') + "]";
}

TEST(ProgressBar, DrawsStarsSpinnerAndSpaces) {
    OptionsGuard guard;
    work::options = 0;
    struct Case {
        int percent;
        std::string want;
    };
    const Case cases[] = {
        {67, bar(67, 46, '|', 23)},
        {2, bar(2, 1, '\\', 68)},
        {0, bar(0, 0, '/', 69)},
        {10, bar(10, 7, '\\', 62)},
        {15, bar(15, 10, '|', 59)},
        {90, bar(90, 63, '\\', 6)},
        {99, bar(99, 69, '|', 0)},
        {100, bar(100, 70, '\0', 0) + "\n"},
    };
    for (const auto& c : cases) {
        CapturedStdout out;
        setProgressBar(c.percent);
        EXPECT_EQ(c.want, out.text()) << c.percent;
    }
}

TEST(ProgressBar, SameValueSameSpinner) {
    OptionsGuard guard;
    work::options = 0;
    CapturedStdout out;
    setProgressBar(41);
    setProgressBar(41);
    EXPECT_EQ(bar(41, 28, '-', 41) + bar(41, 28, '-', 41), out.text());
}

TEST(ProgressBar, SilentPrintsNothing) {
    OptionsGuard guard;
    work::options = OPT_SILENT | OPT_VERBOSE;
    CapturedStdout out;
    for (int percent : {0, 2, 50, 67, 100}) setProgressBar(percent);
    EXPECT_EQ("", out.text());
}

TEST(UserConfirmation, AnswersAndHowOftenTheQuestionIsAsked) {
    const std::string prompt = "Do you wish to proceed y[es] or n[o]?: ";
    struct Case {
        const char* name;
        std::string input;
        int result;
        int questions;
    };
    const Case cases[] = {
        {"y", "y\n", 1, 1},
        {"Y", "Y\n", 1, 1},
        {"ye", "ye\n", 1, 1},
        {"YES", "YES\n", 1, 1},
        {"yEs", "yEs\n", 1, 1},
        {"n", "n\n", 0, 1},
        {"NO", "NO\n", 0, 1},
        {"yess rejected", "yess\nn\n", 0, 2},
        {"leading blank rejected", " y\nno\n", 0, 2},
        {"trailing blank rejected", "y \nyes\n", 1, 2},
        {"empty line asks again", "\n\ny\n", 1, 3},
        {"other words ask again", "maybe\nnope\nok\nn\n", 0, 4},
        {"last line without line feed", "x\ny", 1, 2},
        {"overlong answer is one answer", std::string(300, 'y') + "\nn\n", 0, 2},
        {"tail of an overlong line is not an answer", std::string(255, 'x') + "y\nn\n", 0, 2},
    };
    for (const auto& c : cases) {
        FedStdin in(c.input);
        CapturedStdout out;
        int result = getUserConfirmation();
        std::string text = out.text();
        EXPECT_EQ(c.result, result) << c.name;
        std::string want;
        for (int i = 0; i < c.questions; ++i) want += prompt;
        EXPECT_EQ(want, text) << c.name;
    }
}

}  // namespace
