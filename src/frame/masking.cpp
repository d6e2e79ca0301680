// The one switch over every masking path: logs, command output, kept answers and the archive.
#include "frame/masking.h"

#include <cstdio>

#include "frame/work.h"

size_t maskLine(std::string& line) {
    return work::maskSecrets ? privacy::maskText(line) : 0;
}

size_t maskConfiguration(std::string& text) {
    return work::maskSecrets ? privacy::maskText(text) : 0;
}

size_t maskLineInPlace(char* line, size_t size) {
    if (!work::maskSecrets || size == 0) return 0;
    std::string text(line);
    size_t masked = privacy::maskText(text);
    if (masked != 0) snprintf(line, size, "%s", text.c_str());
    return masked;
}
