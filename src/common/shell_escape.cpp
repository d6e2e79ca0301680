// Escaping text for a double-quoted shell word.
#include "common/shell_escape.h"

#include <cstring>

size_t escapeForDoubleQuotes(const char* text, char* buffer, size_t size) {
    if (size == 0) return 0;
    size_t used = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        // A name such as app$(reboot).log must reach the program as it stands, never run.
        bool special = strchr("\"\\$`", *p) != nullptr;
        size_t needed = special ? 2 : 1;
        if (used + needed > size - 1) break;
        if (special) buffer[used++] = '\\';
        buffer[used++] = *p;
    }
    buffer[used] = '\0';
    return used;
}
