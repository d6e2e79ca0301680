// The progress bar and the yes/no confirmation on the console.
#include "frame/console.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "frame/i18n.h"
#include "frame/work.h"

namespace {

constexpr int BAR_WIDTH = 70;

/// Reads one answer line into buffer without its line feed; false, with an empty answer, at
/// the end of input. A line longer than the buffer is read to its end and kept cut, so its
/// tail is never taken for the next answer.
bool readAnswer(char* buffer, size_t size) {
    buffer[0] = '\0';
    if (std::fgets(buffer, static_cast<int>(size), stdin) == nullptr) {
        buffer[0] = '\0';
        return false;
    }
    size_t length = std::strlen(buffer);
    if (length > 0 && buffer[length - 1] == '\n') {
        buffer[length - 1] = '\0';
        return true;
    }
    int c;
    while ((c = std::getchar()) != EOF && c != '\n') {
    }
    return true;
}

/// True when answer, over its own length, is the beginning of word.
bool beginsWord(const char* answer, const char* word) {
    return std::strncmp(answer, word, std::strlen(answer)) == 0;
}

}  // namespace

void setProgressBar(int percent) {
    if (work::options & OPT_SILENT) return;
    // The spinner follows the percentage, not the clock: the same value draws the same bar.
    static const char spinner[] = "/-\\|";
    // Seven tenths of the percentage in whole numbers: the floating product would draw 62
    // columns instead of 63 at 90 percent.
    const long long filled = static_cast<long long>(percent) * 7 / 10;
    char bar[BAR_WIDTH + 1];
    for (int column = 0; column < BAR_WIDTH; ++column)
        bar[column] = column < filled ? '*' : column == filled ? spinner[(percent % 4 + 4) % 4] : ' ';
    bar[BAR_WIDTH] = '\0';
    std::printf("\r%3d%% [%s]", percent, bar);
    std::fflush(stdout);
    if (percent == 100) {
        std::putchar('\n');
        std::fflush(stdout);
    }
}

int getUserConfirmation() {
    char yes[16];
    char no[16];
    std::snprintf(yes, sizeof yes, "%s", _("yes"));
    std::snprintf(no, sizeof no, "%s", _("no"));
    for (;;) {
        std::printf("%s: ", _("Do you wish to proceed y[es] or n[o]?"));
        std::fflush(stdout);
        char answer[256];
        // Nobody is left to answer once input has ended: asking again would loop for ever.
        if (!readAnswer(answer, sizeof answer)) return 0;
        for (char* c = answer; *c != '\0'; ++c) {
            *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
        }
        if (answer[0] == '\0') continue;
        if (beginsWord(answer, yes)) return 1;
        if (beginsWord(answer, no)) return 0;
    }
}
