// Application manifests: a product's JSON manifest names the log files to pack and the commands
// whose output is captured; both end up in work::archiveList.
#include "collect/manifest.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "collect/member_paths.h"
#include "collect/placeholders.h"
#include "collect/spawning.h"
#include "frame/app.h"
#include "frame/folders.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"
#include "json/jsonparser.h"

namespace {

constexpr const char* MANIFEST_ROOT = "Linux";
constexpr size_t COMMAND_SIZE = 8192;
constexpr size_t JSON_PATH_SIZE = 256;
constexpr size_t MODE_SIZE = 4;  // an open mode of at most three characters

bool fileExists(const char* path) {
    struct stat info;
    return stat(path, &info) == 0;
}

/// The product's own manifest first, then the one shipped beside this program.
bool findManifest(const char* installFolder, const char* product, char* path, size_t size) {
    snprintf(path, size, "%s/gatr_manifest.json", installFolder);
    if (fileExists(path)) return true;
    char shipped[PATH_SIZE];
    snprintf(shipped, sizeof shipped, "var/%s/gatr_manifest.json", product);
    programFile(shipped, path, size);
    return fileExists(path);
}

// The product whose manifest is being processed, for the entries it adds.
std::string currentProduct;

/// Adds a path to the archive list for the current product; a file pattern's entries are logs.
void addProductEntry(const char* path, bool log) {
    work::archiveList.emplace_back(path);
    std::string name = normalisePath(path);
    work::entryProducts[name] = currentProduct;
    if (log) work::logPaths.insert(name);
}

enum class MatchKind { All, Contains, Suffix, Prefix, PrefixAndSuffix };

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// A name pattern with one '*' that counts: the first one. A second '*' matters only as the
/// closing star of "*text*"; anywhere else it is taken literally.
struct NamePattern {
    explicit NamePattern(const std::string& name) {
        size_t star = name.find('*');
        if (name == "*") {
            kind = MatchKind::All;
        } else if (star == 0 && name.back() == '*') {
            kind = MatchKind::Contains;
            first = name.substr(1, name.size() - 2);
        } else if (star == 0) {
            kind = MatchKind::Suffix;
            first = name.substr(1);
        } else if (star == name.size() - 1) {
            kind = MatchKind::Prefix;
            first = name.substr(0, star);
        } else {
            kind = MatchKind::PrefixAndSuffix;
            first = name.substr(0, star);
            second = name.substr(star + 1);
        }
    }

    bool matches(const std::string& entry) const {
        switch (kind) {
        case MatchKind::All: return true;
        case MatchKind::Contains: return entry.find(first) != std::string::npos;
        case MatchKind::Suffix: return endsWith(entry, first);
        case MatchKind::Prefix: return startsWith(entry, first);
        case MatchKind::PrefixAndSuffix: return startsWith(entry, first) && endsWith(entry, second);
        }
        return false;
    }

    MatchKind kind = MatchKind::All;
    std::string first;
    std::string second;
};

/// Reads a string member of the manifest into buffer; false (logged, naming the entry) when the
/// member is missing or not a string, since such an entry cannot be acted on.
bool readMember(JsonDocument& manifest, const char* path, const char* manifestPath, char* buffer,
                size_t size) {
    if (manifest.getType(path) != JSON_STRING) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("application manifest %s: %s is missing or not a string - entry skipped\n"),
                 manifestPath, path);
        return false;
    }
    manifest.getValue(path, buffer, size);
    return true;
}

/// "./x" lands in the output folder; ".\x" the same, joined the way such manifests spell it.
void resolveOutputFile(const char* file, char* path, size_t size) {
    if (strncmp(file, "./", 2) == 0) {
        snprintf(path, size, "%s/%s", work::outputFolder, file + 2);
    } else if (strncmp(file, ".\\", 2) == 0) {
        snprintf(path, size, "%s\\%s", work::outputFolder, file + 2);
    } else {
        snprintf(path, size, "%s", file);
    }
}

/// A command writes into its file; a read-only mode would archive nothing useful, while "r+"
/// writes over an existing file from its start.
bool isWritingMode(const char* mode) {
    return mode[0] == 'w' || mode[0] == 'a' || (mode[0] == 'r' && strchr(mode, '+') != nullptr);
}

void processManifestCommand(JsonDocument& manifest, const char* manifestPath,
                            const char* installFolder, int index) {
    char member[JSON_PATH_SIZE];
    char command[COMMAND_SIZE] = {};
    char file[PATH_SIZE] = {};
    char mode[MODE_SIZE] = {};

    snprintf(member, sizeof member, "%s->archive->commands[%d]->command", MANIFEST_ROOT, index);
    if (!readMember(manifest, member, manifestPath, command, sizeof command)) return;
    snprintf(member, sizeof member, "%s->archive->commands[%d]->file", MANIFEST_ROOT, index);
    if (!readMember(manifest, member, manifestPath, file, sizeof file)) return;
    snprintf(member, sizeof member, "%s->archive->commands[%d]->mode", MANIFEST_ROOT, index);
    if (!readMember(manifest, member, manifestPath, mode, sizeof mode)) return;
    if (!isWritingMode(mode)) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("application manifest %s: %s \"%s\" is not a writing mode - entry skipped\n"),
                 manifestPath, member, mode);
        return;
    }
    if (command[0] == '\0') {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("application manifest %s: command %d is empty - entry skipped\n"), manifestPath,
                 index);
        return;
    }

    sanitiseFileName(command, sizeof command, installFolder);
    char output[PATH_SIZE] = {};
    resolveOutputFile(file, output, sizeof output);
    // Error output goes into the same file unless the command already says where it goes.
    if (strstr(command, "2>&1") == nullptr) {
        size_t length = strlen(command);
        snprintf(command + length, sizeof command - length, "%s", " 2>&1");
    }

    try {
        if (spawnProgram(command, output, mode) == 0) addProductEntry(output, false);
    } catch (const std::exception& e) {
        // Only a failing command whose program cannot be named gets here; the others go on.
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s: %s", _("exception caught"), e.what());
    }
}

}  // namespace

void processManifestFile(const char* pattern, const char* installFolder, int /*index*/) {
    char expanded[PATH_SIZE] = {};
    snprintf(expanded, sizeof expanded, "%s", pattern);
    sanitiseFileName(expanded, sizeof expanded, installFolder);

    char* slash = strrchr(expanded, '/');
    if (slash == nullptr) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("file pattern %s has no folder part - pattern skipped\n"), expanded);
        return;
    }
    if (strchr(expanded, '*') == nullptr) {
        // A file that does not exist is left for the archive to skip.
        addProductEntry(expanded, true);
        return;
    }
    std::string name(slash + 1);
    if (name.find('*') == std::string::npos) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("file pattern %s has a '*' outside its last component - pattern skipped\n"),
                 expanded);
        return;
    }
    *slash = '\0';
    const char* folder = expanded;
    // Every entry of the root folder is a whole tree (/proc, /sys, /dev among them): packing
    // them would never end, so no pattern may list it.
    if (strspn(folder, "/") == strlen(folder)) {
        *slash = '/';
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("file pattern %s lists the root folder - pattern skipped"), expanded);
        return;
    }

    NamePattern match(name);
    std::vector<std::string> entries;
    getDirectoryList(folder, entries);
    char path[PATH_SIZE];
    for (const std::string& entry : entries) {
        if (!match.matches(entry)) continue;
        snprintf(path, sizeof path, "%s/%s", folder, entry.c_str());
        addProductEntry(path, true);
    }
}

int processManifest(const char* installFolder, const char* product) {
    currentProduct = product;
    char manifestPath[PATH_SIZE] = {};
    if (!findManifest(installFolder, product, manifestPath, sizeof manifestPath)) {
        logError(__FILE__, __LINE__, STATUS_WARNING, "%s",
                 _("no application manifests found no log gathering will occur"));
        return -1;
    }
    JsonDocument manifest;
    if (manifest.loadDocument(manifestPath) != 0) {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 _("application manifest %s could not be loaded - no log gathering will occur\n"),
                 manifestPath);
        return -1;
    }
    if (manifest.getType(MANIFEST_ROOT) != JSON_OBJECT) {
        logError(__FILE__, __LINE__, STATUS_WARNING,
                 _("application manifest %s has no \"%s\" object - no log gathering will occur\n"),
                 manifestPath, MANIFEST_ROOT);
        return 0;
    }

    char member[JSON_PATH_SIZE];
    snprintf(member, sizeof member, "%s->archive->files[]", MANIFEST_ROOT);
    size_t fileCount = manifest.getArraySize(member);
    char pattern[PATH_SIZE];
    for (size_t i = 0; i < fileCount; ++i) {
        snprintf(member, sizeof member, "%s->archive->files[%d]", MANIFEST_ROOT,
                 static_cast<int>(i));
        if (!readMember(manifest, member, manifestPath, pattern, sizeof pattern)) continue;
        processManifestFile(pattern, installFolder, static_cast<int>(i));
    }

    snprintf(member, sizeof member, "%s->archive->commands[]", MANIFEST_ROOT);
    size_t commandCount = manifest.getArraySize(member);
    for (size_t i = 0; i < commandCount; ++i) {
        processManifestCommand(manifest, manifestPath, installFolder, static_cast<int>(i));
    }
    return 0;
}
