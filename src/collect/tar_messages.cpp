// tar names each file it could not read; support wants those names, and a missing file must
// not lose the rest of the archive, so they are warnings. Bounded: a run that lists thousands
// of vanished files keeps the first few hundred names and the count of the rest.
#include "collect/tar_messages.h"

#include <cstring>

#include "frame/logging.h"

void TarMessages::add(const char* line) {
    size_t length = strcspn(line, "\r\n");
    if (length == 0) return;
    if (used + length + 1 > sizeof text) {
        ++dropped;
        return;
    }
    memcpy(text + used, line, length);
    text[used + length] = '\0';
    used += length + 1;
}

void TarMessages::log() const {
    for (size_t at = 0; at < used; at += strlen(text + at) + 1) {
        logError(__FILE__, __LINE__, STATUS_WARNING, "%s", text + at);
    }
    if (dropped > 0) {
        logError(__FILE__, __LINE__, STATUS_WARNING, "%d more lines from tar left out", dropped);
    }
}
