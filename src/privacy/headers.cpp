// HTTP credentials as they show in logs, traces and saved requests: the scheme word of an
// Authorization header says how to read it, so it stays; cookie names stay, their values go.
#include <cstring>

#include "privacy/names.h"
#include "privacy/scanner.h"

namespace privacy {

namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

size_t trimEnd(const char* line, size_t begin, size_t end) {
    while (end > begin && (isBlank(line[end - 1]) || line[end - 1] == ',')) --end;
    return end;
}

}  // namespace

size_t maskAuthorization(const char* line, size_t at, size_t stop, LineEdits& edits) {
    while (at < stop && isBlank(line[at])) ++at;
    size_t word = at;
    while (word < stop && isLetter(line[word])) ++word;
    size_t credential = word;
    while (credential < stop && isBlank(line[credential])) ++credential;
    size_t end = trimEnd(line, credential, stop);
    if (credential == word || credential >= end) {
        // One word, no scheme: a token only when it does not read as a setting (enabled, rbac).
        end = at;
        bool telling = false;
        while (end < stop && !isBlank(line[end]) && line[end] != ',') {
            telling = telling || !isLetter(line[end]);
            ++end;
        }
        if (!telling || isPlainValue(line + at, end - at)) return end;
        credential = at;
    }
    edits.add(line, credential, end, MASK_HTTP_AUTH);
    return end;
}

size_t maskCookies(const char* line, size_t at, size_t stop, bool first, LineEdits& edits) {
    while (at < stop) {
        size_t pairEnd = at;
        while (pairEnd < stop && line[pairEnd] != ';') ++pairEnd;
        const char* equals = static_cast<const char*>(memchr(line + at, '=', pairEnd - at));
        if (equals != nullptr) {
            size_t value = static_cast<size_t>(equals - line) + 1;
            size_t end = trimEnd(line, value, pairEnd);
            if (end > value && line[value] == '"' && line[end - 1] == '"' && end - value > 1) {
                ++value;
                --end;
            }
            edits.add(line, value, end, MASK_COOKIE);
        }
        if (first) return stop;
        at = pairEnd + 1;
    }
    return stop;
}

}  // namespace privacy
