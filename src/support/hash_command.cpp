// The hash mode: one file, or the matching entries of one folder, one output line each.
#include "support/hash_command.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/folders.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {

// Copies count bytes of text into a pattern part, cut to the part's size.
void copyPatternPart(char* part, const char* text, size_t count) {
    if (count > HASH_PATTERN_PART_MAX)
        count = HASH_PATTERN_PART_MAX;
    memcpy(part, text, count);
    part[count] = '\0';
}

bool beginsWith(const char* name, const char* text) {
    return strncmp(name, text, strlen(text)) == 0;
}

bool endsWith(const char* name, const char* text) {
    size_t nameLength = strlen(name);
    size_t textLength = strlen(text);
    return textLength <= nameLength && memcmp(name + nameLength - textLength, text, textLength) == 0;
}

// Writes name into shown with "\\" for each backslash and "\n" for each line feed, cut to
// size; true when anything needed escaping. A line of the checksum tools' layout then cannot
// be forged by a file name, and their check mode reads the name back as it is.
bool escapeName(const char* name, char* shown, size_t size) {
    bool escaped = false;
    size_t used = 0;
    for (const char* c = name; *c != '\0' && used + 2 < size; ++c) {
        if (*c == '\\' || *c == '\n') {
            shown[used++] = '\\';
            shown[used++] = *c == '\n' ? 'n' : '\\';
            escaped = true;
        } else {
            shown[used++] = *c;
        }
    }
    shown[used] = '\0';
    return escaped;
}

// True (logged) for a FIFO, socket or device, or a link to one: opening a FIFO waits for a
// writer, and a device such as /dev/zero never ends. Folders keep failing on their first read.
bool skipSpecialFile(const char* path) {
    struct stat status;
    if (stat(path, &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))
        return false;
    logError(__FILE__, __LINE__, STATUS_ERROR, _("%s is not a regular file: skipped"), path);
    return true;
}

}  // namespace

HashPattern classifyHashPattern(const char* pattern) {
    HashPattern result;
    size_t length = strlen(pattern);
    bool endsInStar = length > 0 && pattern[length - 1] == '*';
    if (strcmp(pattern, "*") == 0) {
        result.kind = PATTERN_ALL;
    } else if (pattern[0] == '*') {
        if (!endsInStar) {
            result.kind = PATTERN_SUFFIX;
            copyPatternPart(result.first, pattern + 1, length - 1);
        } else {
            result.kind = PATTERN_INFIX;
            copyPatternPart(result.first, pattern + 1, length - 2);
        }
    } else if (!endsInStar) {
        result.kind = PATTERN_PREFIX_SUFFIX;
        const char* star = strchr(pattern, '*');
        size_t firstLength = star ? static_cast<size_t>(star - pattern) : length;
        copyPatternPart(result.first, pattern, firstLength);
        if (star)
            copyPatternPart(result.second, star + 1, strlen(star + 1));
    } else {
        result.kind = PATTERN_PREFIX;
        copyPatternPart(result.first, pattern, length - 1);
    }
    return result;
}

bool matchesHashPattern(const HashPattern& pattern, const char* name) {
    switch (pattern.kind) {
    case PATTERN_ALL:
        return true;
    case PATTERN_PREFIX:
        return beginsWith(name, pattern.first);
    case PATTERN_SUFFIX:
        return endsWith(name, pattern.first);
    case PATTERN_INFIX:
        return strstr(name, pattern.first) != nullptr;
    case PATTERN_PREFIX_SUFFIX:
        return beginsWith(name, pattern.first) && endsWith(name, pattern.second);
    }
    return false;
}

void hashFile(crypto_type_t type, const char* path) {
    if (skipSpecialFile(path))
        return;
    char hash[SHA256_HASH_SIZE] = {};
    Crypto crypto;
    int result = -1;
    try {
        result = crypto.computeHash(type, path, hash);
    } catch (const std::runtime_error& e) {
        // Only a caller passing a value outside the three algorithms gets here: no file can be
        // hashed, so the mode ends as on any other fatal error of its own.
        logError(__FILE__, __LINE__, STATUS_FATAL, "%s", e.what());
        fprintf(stderr, "%s: %s\n", PROGRAM_NAME, e.what());
        exit(1);
    }
    if (result != 0)
        return;
    char shown[2 * PATH_SIZE] = {};
    bool escaped = escapeName(path, shown, sizeof shown);
    // The checksum tools mark a line whose name is escaped with a leading backslash.
    printf("%s%s  %s\n", escaped ? "\\" : "", hash, shown);
    // Line by line, so that a reader of a long walk sees each file as soon as it is done.
    fflush(stdout);
}

void hashPathname(crypto_type_t type) {
    char path[PATH_SIZE] = {};
    snprintf(path, sizeof path, "%s", work::hashPathname ? work::hashPathname : "");
    size_t length = strlen(path);
    // A folder path means every entry of the folder.
    if (length > 0 && path[length - 1] == '/' && length + 1 < sizeof path)
        path[length] = '*';

    if (strchr(path, '*') == nullptr) {
        struct stat status;
        if (stat(path, &status) != 0) {
            fprintf(stderr, "%s: %s\n", PROGRAM_NAME, _("file does not exist"));
            exit(1);
        }
        hashFile(type, path);
        return;
    }

    char folder[PATH_SIZE] = {};
    const char* slash = strrchr(path, '/');
    const char* pattern = path;
    if (slash == nullptr) {
        snprintf(folder, sizeof folder, ".");
    } else {
        snprintf(folder, sizeof folder, "%.*s", static_cast<int>(slash - path), path);
        pattern = slash + 1;
    }
    HashPattern compiled = classifyHashPattern(pattern);

    std::vector<std::string> entries;
    // "/name*" has an empty folder text: that is the root folder, and the built paths
    // "/<entry>" already name it.
    getDirectoryList(folder[0] != '\0' ? folder : "/", entries);
    for (const std::string& name : entries) {
        if (!matchesHashPattern(compiled, name.c_str()))
            continue;
        char entryPath[PATH_SIZE] = {};
        snprintf(entryPath, sizeof entryPath, "%s/%s", folder, name.c_str());
        hashFile(type, entryPath);
    }
}
