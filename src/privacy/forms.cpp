// Forms are checked only where a cheap first byte says they may start, so ordinary lines cost a
// table look-up per byte.
#include "privacy/forms.h"

#include <cstring>

#include "privacy/masking.h"

namespace privacy {

namespace {

bool isAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}
bool isUpperOrDigit(char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }
bool isBase64Url(char c) { return isAlnum(c) || c == '-' || c == '_'; }
bool isBase64(char c) { return isAlnum(c) || c == '+' || c == '/' || c == '='; }

bool startsWith(const char* text, size_t size, size_t at, const char* prefix) {
    size_t length = strlen(prefix);
    return at + length <= size && memcmp(text + at, prefix, length) == 0;
}

const char* find(const char* text, size_t size, const char* what) {
    return static_cast<const char*>(memmem(text, size, what, strlen(what)));
}

/// Characters of `accepted` from `at` on, as a count.
template <typename Accept>
size_t runOf(const char* text, size_t size, size_t at, Accept accepted) {
    size_t end = at;
    while (end < size && accepted(text[end])) ++end;
    return end - at;
}

struct Prefix {
    const char* text;
    bool (*body)(char);
    size_t shortest;  // of the body after the prefix
};

bool isTokenChar(char c) { return isAlnum(c) || c == '_'; }
bool isDashedTokenChar(char c) { return isAlnum(c) || c == '-' || c == '_'; }

const Prefix PREFIXES[] = {
    {"AKIA", isUpperOrDigit, 16},  {"ASIA", isUpperOrDigit, 16},
    {"ghp_", isAlnum, 20},         {"gho_", isAlnum, 20},
    {"ghu_", isAlnum, 20},         {"ghs_", isAlnum, 20},
    {"ghr_", isAlnum, 20},         {"github_pat_", isTokenChar, 20},
    {"glpat-", isDashedTokenChar, 20}, {"xoxb-", isDashedTokenChar, 10},
    {"xoxa-", isDashedTokenChar, 10},  {"xoxp-", isDashedTokenChar, 10},
    {"xoxr-", isDashedTokenChar, 10},  {"xoxs-", isDashedTokenChar, 10},
    {"xoxe-", isDashedTokenChar, 10},  {"AIza", isDashedTokenChar, 30},
    {"sk_live_", isAlnum, 16},     {"rk_live_", isAlnum, 16},
};

}  // namespace

bool isKeyBlockBegin(const char* line, size_t size) {
    const char* begin = find(line, size, "-----BEGIN ");
    if (begin == nullptr) return false;
    size_t rest = size - static_cast<size_t>(begin - line);
    return find(begin, rest, "PRIVATE KEY") != nullptr || find(begin, rest, "OpenVPN Static key") != nullptr;
}

bool isKeyBlockEnd(const char* line, size_t size) { return find(line, size, "-----END ") != nullptr; }

bool isKeyBlockBody(const char* line, size_t size) {
    size_t at = 0;
    while (at < size && (line[at] == ' ' || line[at] == '\t')) ++at;
    while (size > at && (line[size - 1] == '\n' || line[size - 1] == '\r' || line[size - 1] == ' '))
        --size;
    if (at == size || (size - at == 8 && memcmp(line + at, MASKED_VALUE, 8) == 0)) return true;
    // Armour headers: Proc-Type:, DEK-Info:, Comment:, Version:, Hash:
    const char* colon = static_cast<const char*>(memchr(line + at, ':', size - at));
    if (colon != nullptr) {
        for (const char* c = line + at; c < colon; ++c) {
            if (!isAlnum(*c) && *c != '-') return false;
        }
        return true;
    }
    return runOf(line, size, at, isBase64) == size - at;
}

size_t matchTokenForm(const char* text, size_t size, size_t at, int& rule) {
    // The second byte turns away nearly every ordinary word before the prefixes are tried.
    if (at + 4 > size) return 0;
    char second = text[at + 1];
    switch (text[at]) {
        case 'e': if (second != 'y') return 0; break;
        case 'A': if (second != 'K' && second != 'S' && second != 'I') return 0; break;
        case 'g': if (second != 'h' && second != 'i' && second != 'l') return 0; break;
        case 'x': if (second != 'o') return 0; break;
        case 's': case 'r': if (second != 'k') return 0; break;
        default: return 0;
    }
    if (startsWith(text, size, at, "eyJ")) {
        size_t header = runOf(text, size, at, isBase64Url);
        size_t dot = at + header;
        if (dot >= size || text[dot] != '.' || !startsWith(text, size, dot + 1, "eyJ")) return 0;
        size_t payload = runOf(text, size, dot + 1, isBase64Url);
        size_t second = dot + 1 + payload;
        if (second >= size || text[second] != '.') return 0;
        rule = MASK_JWT;
        return second + 1 + runOf(text, size, second + 1, isBase64Url) - at;
    }
    for (const Prefix& prefix : PREFIXES) {
        if (!startsWith(text, size, at, prefix.text)) continue;
        size_t length = strlen(prefix.text);
        size_t body = runOf(text, size, at + length, prefix.body);
        if (body < prefix.shortest) return 0;
        rule = MASK_TOKEN_FORM;
        return length + body;
    }
    return 0;
}

size_t matchCryptHash(const char* text, size_t size, size_t at) {
    static const char* const IDS[] = {"$1$", "$apr1$", "$2a$", "$2b$", "$2y$", "$5$", "$6$", "$y$"};
    for (const char* id : IDS) {
        if (!startsWith(text, size, at, id)) continue;
        size_t end = at + strlen(id);
        int dollars = 0;
        while (end < size && (isAlnum(text[end]) || text[end] == '.' || text[end] == '/' ||
                              text[end] == '$' || text[end] == '=')) {
            dollars += text[end] == '$';
            ++end;
        }
        // A shell's "$1$2" is no hash: a real one has a salt and a digest of some length.
        return dollars >= 1 && end - at >= 20 ? end - at : 0;
    }
    return 0;
}

bool findUrlPassword(const char* text, size_t size, size_t at, size_t& begin, size_t& end) {
    size_t user = at + 3;
    size_t stop = user;  // the end of the URL
    while (stop < size && text[stop] != ' ' && text[stop] != '\t' && text[stop] != '"' &&
           text[stop] != '\'' && text[stop] != '<' && text[stop] != '>' && text[stop] != '\n' &&
           text[stop] != '\r' && text[stop] != '`')
        ++stop;
    size_t colon = user;
    while (colon < stop && text[colon] != ':' && text[colon] != '/' && text[colon] != '@' &&
           text[colon] != '?' && text[colon] != '#')
        ++colon;
    if (colon >= stop || text[colon] != ':') return false;
    const char* firstAt = static_cast<const char*>(memchr(text + colon, '@', stop - colon));
    if (firstAt == nullptr) return false;
    size_t port = colon + 1;  // host:8080/users/@me has a port, not a password
    while (port < stop && text[port] >= '0' && text[port] <= '9') ++port;
    if (port > colon + 1 && port < stop && text[port] == '/' && text + port < firstAt) return false;
    // A password may hold '@' and '/': the host follows the last '@' that is followed by a
    // dotted host name, or else the last '@' before the path that comes after the first '@'.
    size_t hostAt = 0;
    for (size_t at = stop; at > colon + 1 && hostAt == 0; --at) {
        if (text[at - 1] != '@') continue;
        size_t end = at;
        bool dotted = false;
        while (end < stop && (isAlnum(text[end]) || text[end] == '.' || text[end] == '-' || text[end] == '_')) {
            dotted = dotted || text[end] == '.';
            ++end;
        }
        bool hostEnd = end == stop || text[end] == '/' || text[end] == ':' || text[end] == '?' || text[end] == '#';
        if (dotted && hostEnd) hostAt = at;
    }
    if (hostAt == 0) {
        size_t path = static_cast<size_t>(firstAt - text);
        while (path < stop && text[path] != '/' && text[path] != '?' && text[path] != '#') ++path;
        hostAt = path;
        while (text[hostAt - 1] != '@') --hostAt;
    }
    begin = colon + 1;
    end = hostAt - 1;
    return end > begin;
}

}  // namespace privacy
