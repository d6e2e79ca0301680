// Masking by name and by URL form. Every masked value is counted under its rule, so that a
// writer can say what it hid without ever saying the value.
#include "privacy/masking.h"

#include <strings.h>

#include <cctype>
#include <cstring>

namespace privacy {

namespace {

bool isSecretName(const char* name, size_t length);

const char* const SECRET_WORDS[] = {"PASS", "PWD", "SECRET", "TOKEN", "KEY",
                                    "CREDENTIAL", "AUTH", "COOKIE", "PRIVATE"};

bool isNameChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.';
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

/// Replaces text[begin, end) by the mask unless it is empty or masked already; 1 if replaced.
size_t maskRange(std::string& text, size_t begin, size_t end) {
    if (end <= begin || text.compare(begin, end - begin, MASKED_VALUE) == 0) return 0;
    text.replace(begin, end - begin, MASKED_VALUE);
    return 1;
}

/// The value of a key that ends at keyEnd, after the separator at sep: to the end of the line
/// or, when quoted, to the closing quote.
size_t maskValueAfter(std::string& text, size_t sep, size_t lineEnd) {
    size_t begin = sep + 1;
    while (begin < lineEnd && isBlank(text[begin])) ++begin;
    if (begin >= lineEnd) return 0;
    size_t end = lineEnd;
    if (text[begin] == '"' || text[begin] == '\'') {
        size_t close = text.find(text[begin], begin + 1);
        if (close == std::string::npos || close > lineEnd) return 0;
        return maskRange(text, begin + 1, close);
    }
    while (end > begin && (isBlank(text[end - 1]) || text[end - 1] == '\r' || text[end - 1] == ','))
        --end;
    return maskRange(text, begin, end);
}

/// One line of a configuration file, [begin, end) in text.
size_t maskConfigurationLine(std::string& text, size_t begin, size_t& end) {
    size_t i = begin;
    while (i < end && isBlank(text[i])) ++i;
    if (i < end && text[i] == '<') {  // <key>value</key>
        size_t nameEnd = i + 1;
        while (nameEnd < end && isNameChar(text[nameEnd])) ++nameEnd;
        if (nameEnd >= end || text[nameEnd] != '>' || !isSecretName(&text[i + 1], nameEnd - i - 1))
            return 0;
        size_t close = text.find("</", nameEnd);
        if (close == std::string::npos || close > end) return 0;
        size_t before = text.size();
        size_t masked = maskRange(text, nameEnd + 1, close);
        end = end + text.size() - before;
        return masked;
    }
    size_t nameBegin = i;
    size_t nameEnd = nameBegin;
    while (nameEnd < end && isNameChar(text[nameEnd])) ++nameEnd;
    if (nameEnd == nameBegin || !isSecretName(&text[nameBegin], nameEnd - nameBegin)) return 0;
    size_t sep = nameEnd;
    while (sep < end && isBlank(text[sep])) ++sep;
    if (sep >= end || (text[sep] != '=' && text[sep] != ':')) return 0;
    size_t before = text.size();
    size_t masked = maskValueAfter(text, sep, end);
    end = end + text.size() - before;
    return masked;
}

/// Every "key": "value" pair with a secret-like key, wherever it stands: JSON is as often
/// written on one line as on many.
size_t maskJsonPairs(std::string& text) {
    size_t masked = 0;
    size_t open = text.find('"');
    while (open != std::string::npos) {
        size_t close = text.find('"', open + 1);
        if (close == std::string::npos) break;
        size_t colon = close + 1;
        while (colon < text.size() && std::isspace(static_cast<unsigned char>(text[colon]))) ++colon;
        if (colon >= text.size() || text[colon] != ':' ||
            !isSecretName(&text[open + 1], close - open - 1)) {
            open = text.find('"', close + 1);
            continue;
        }
        size_t value = colon + 1;
        while (value < text.size() && std::isspace(static_cast<unsigned char>(text[value]))) ++value;
        if (value >= text.size() || text[value] != '"') {
            open = text.find('"', colon);
            continue;
        }
        size_t end = value + 1;
        while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
        if (end >= text.size()) break;
        size_t before = text.size();
        masked += maskRange(text, value + 1, end);
        open = text.find('"', end + 1 + text.size() - before);
    }
    return masked;
}

bool isSecretName(const char* name, size_t length) {
    if ((length == 3 && strncmp(name, "PWD", 3) == 0) ||
        (length == 6 && strncmp(name, "OLDPWD", 6) == 0))
        return false;
    for (const char* word : SECRET_WORDS) {
        size_t wordLength = strlen(word);
        for (size_t at = 0; at + wordLength <= length; ++at) {
            if (strncasecmp(name + at, word, wordLength) == 0) return true;
        }
    }
    return false;
}

size_t maskUrlCredentials(std::string& text) {
    size_t masked = 0;
    for (size_t scheme = text.find("://"); scheme != std::string::npos;
         scheme = text.find("://", scheme + 3)) {
        size_t user = scheme + 3;
        size_t stop = user;
        while (stop < text.size() && !std::isspace(static_cast<unsigned char>(text[stop])) &&
               text[stop] != '/' && text[stop] != '@' && text[stop] != '"' && text[stop] != '\'')
            ++stop;
        if (stop >= text.size() || text[stop] != '@') continue;
        size_t colon = text.find(':', user);
        if (colon == std::string::npos || colon >= stop) continue;
        masked += maskRange(text, colon + 1, stop);
    }
    return masked;
}

}  // namespace

const char* maskRuleName(int rule) {
    switch (rule) {
        case MASK_NAMED_VALUE: return "named-value";
        case MASK_URL_PASSWORD: return "url-password";
        default: return "unknown";
    }
}

unsigned long long MaskCounts::total() const {
    unsigned long long sum = 0;
    for (unsigned long long count : byRule) sum += count;
    return sum;
}

void MaskCounts::add(const MaskCounts& other) {
    for (int rule = 0; rule < MASK_RULE_COUNT; ++rule) byRule[rule] += other.byRule[rule];
}

size_t maskText(std::string& text, MaskCounts* counts) {
    size_t named = 0;
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) end = text.size();
        named += maskConfigurationLine(text, begin, end);
        begin = end + 1;
    }
    named += maskJsonPairs(text);
    size_t urls = maskUrlCredentials(text);
    if (counts != nullptr) {
        counts->byRule[MASK_NAMED_VALUE] += named;
        counts->byRule[MASK_URL_PASSWORD] += urls;
    }
    return named + urls;
}

bool looksBinary(const char* data, size_t size) {
    return memchr(data, '\0', size < 8192 ? size : 8192) != nullptr;
}

// A line longer than this is masked in pieces: one endless line must not hold the whole member
// in memory.
constexpr size_t MAX_HELD = 1 << 20;

void MaskingFilter::feed(const char* data, size_t size, std::string& out) {
    held.append(data, size);
    flushLines(out, false);
}

void MaskingFilter::finish(std::string& out) { flushLines(out, true); }

void MaskingFilter::flushLines(std::string& out, bool all) {
    size_t begin = 0;
    for (;;) {
        size_t end = held.find('\n', begin);
        if (end == std::string::npos) {
            if (begin >= held.size() || (!all && held.size() - begin <= MAX_HELD)) break;
            end = held.size() - 1;
        }
        std::string line = held.substr(begin, end + 1 - begin);
        maskText(line, &masked);
        out += line;
        begin = end + 1;
    }
    held.erase(0, begin);
}

}  // namespace privacy
