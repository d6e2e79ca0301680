// Opening with close-on-exec added to whatever mode the caller gives.
#include "frame/file.h"

#include <cstring>

File::File(const char* path, const char* mode) : stream(nullptr) {
    char withCloseOnExec[8] = {};
    size_t length = strnlen(mode, sizeof withCloseOnExec - 2);
    memcpy(withCloseOnExec, mode, length);
    if (memchr(withCloseOnExec, 'e', length) == nullptr) withCloseOnExec[length] = 'e';
    stream = fopen(path, withCloseOnExec);
}
