// Masked copies of gathered configuration files: support sees every setting a product has, and
// never a password, a key or a token that one of them holds.
#include "collect/masked_copies.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "frame/logging.h"
#include "frame/masking.h"
#include "frame/report.h"
#include "frame/work.h"

namespace {

constexpr off_t LARGEST_CONFIGURATION = 16 << 20;  // larger files are data, not settings
const char* const CONFIGURATION_ENDINGS[] = {".conf", ".cfg", ".cnf", ".ini", ".json", ".xml",
                                             ".properties", ".yaml", ".yml", ".env"};

bool endsWith(const std::string& text, const char* ending) {
    size_t length = strlen(ending);
    return text.size() >= length && text.compare(text.size() - length, length, ending) == 0;
}

bool isConfigurationLike(const std::string& path) {
    if (endsWith(path, ".log")) return false;
    if (path.compare(0, 5, "/etc/") == 0) return true;
    for (const char* ending : CONFIGURATION_ENDINGS) {
        if (endsWith(path, ending)) return true;
    }
    return false;
}

/// The file's text, or false when it is not a regular file of a configuration's size or holds
/// a NUL byte (binary).
bool readText(const std::string& path, std::string& text) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_size > LARGEST_CONFIGURATION)
        return false;
    File file(path.c_str(), "rb");
    if (!file) return false;
    char block[8192];
    size_t got;
    while ((got = fread(block, 1, sizeof block, file.get())) > 0) text.append(block, got);
    return text.find('\0') == std::string::npos;
}

/// Escapes text for one side of a tar --transform expression delimited by '|'.
std::string escapeForTransform(const std::string& text, bool pattern) {
    std::string out;
    for (char c : text) {
        if (c == '|' || c == '\\' || c == '&' || (pattern && strchr(".[]*^$", c) != nullptr))
            out += '\\';
        out += c;
    }
    return out;
}

}  // namespace

void maskConfigurationFiles(std::list<std::string>& entries, const char* folder,
                            std::vector<std::string>& transforms) {
    if (!work::maskSecrets) return;
    int copies = 0;
    for (std::string& entry : entries) {
        std::string text;
        if (!isConfigurationLike(entry) || !readText(entry, text)) continue;
        size_t masked = maskConfiguration(text);
        if (masked == 0) continue;
        if (copies == 0) mkdir(folder, 0700);
        char copy[PATH_SIZE];
        snprintf(copy, sizeof copy, "%s/%d", folder, ++copies);
        File out(copy, "wb");
        if (!out || fwrite(text.data(), 1, text.size(), out.get()) != text.size() ||
            out.close() != 0) {
            // Leaving it out is safer than packing the secrets it holds.
            logError(__FILE__, __LINE__, STATUS_ERROR, "%s: not gathered: masked copy failed",
                     entry.c_str());
            entry = "";
            continue;
        }
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s: secret values masked: %zu",
                 entry.c_str(), masked);
        transforms.push_back("s|^" + escapeForTransform(copy, true) + "$|" +
                             escapeForTransform(entry, false) + "|");
        entry = copy;
    }
    entries.remove("");
}

void maskCommandOutputFile(const char* path) {
    std::string text;
    if (!work::maskSecrets || !readText(path, text)) return;
    std::string masked;
    size_t count = 0;
    for (size_t begin = 0; begin < text.size();) {
        size_t end = text.find('\n', begin);
        end = end == std::string::npos ? text.size() : end + 1;
        std::string line = text.substr(begin, end - begin);
        count += maskLine(line);
        masked += line;
        begin = end;
    }
    if (count == 0) return;
    File out(path, "wb");
    if (!out || fwrite(masked.data(), 1, masked.size(), out.get()) != masked.size()) {
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s: masking failed", path);
    }
}
