// Expanding the placeholders of manifest entries from the environment.
#include "collect/placeholders.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/string_helpers.h"
#include "frame/work.h"

void sanitiseFileName(char* text, size_t size, const char* installPath) {
    // Each pass replaces the first placeholder; a value that itself holds a %NAME% pair would be
    // expanded again and could grow without end, so the passes are bounded.
    for (int pass = 0; pass < 64; ++pass) {
        char* open = strchr(text, '%');
        if (open == nullptr) return;
        char* close = strchr(open + 1, '%');
        if (close == nullptr) return;

        char placeholder[256] = {};
        char name[256] = {};
        snprintf(placeholder, sizeof placeholder, "%.*s", static_cast<int>(close - open + 1), open);
        snprintf(name, sizeof name, "%.*s", static_cast<int>(close - open - 1), open + 1);

        char value[PATH_SIZE] = {};
        if (strcmp(name, "HOME") == 0) {
            const char* sudoUser = getenv("SUDO_USER");
            if (sudoUser != nullptr) {
                snprintf(value, sizeof value, "/home/%s", sudoUser);
            } else {
                const char* home = getenv("HOME");
                snprintf(value, sizeof value, "%s", home != nullptr ? home : "(null)");
            }
        } else if (strcmp(name, "INSTALL") == 0) {
            snprintf(value, sizeof value, "%s", installPath != nullptr ? installPath : "(null)");
        } else {
            const char* env = getenv(name);
            snprintf(value, sizeof value, "%s", env != nullptr ? env : "(null)");
        }
        str_replace(text, size, placeholder, value);
    }
}
