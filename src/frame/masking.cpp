// One place that decides what is secret, so that every path that writes gathered text (command
// output, the environment, the error log, configuration files, kept answers) hides the same.
#include "frame/masking.h"

#include <strings.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "frame/work.h"

namespace {

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

}  // namespace

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

size_t maskLine(std::string& line) {
    if (!work::maskSecrets) return 0;
    size_t masked = 0;
    size_t nameEnd = 0;
    while (nameEnd < line.size() && (std::isalnum(static_cast<unsigned char>(line[nameEnd])) ||
                                     line[nameEnd] == '_'))
        ++nameEnd;
    if (nameEnd > 0 && nameEnd < line.size() && line[nameEnd] == '=' &&
        isSecretName(line.data(), nameEnd)) {
        size_t end = line.size();
        while (end > nameEnd + 1 && (line[end - 1] == '\n' || line[end - 1] == '\r')) --end;
        masked += maskRange(line, nameEnd + 1, end);
    }
    return masked + maskUrlCredentials(line);
}

size_t maskConfiguration(std::string& text) {
    if (!work::maskSecrets) return 0;
    size_t masked = 0;
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) end = text.size();
        masked += maskConfigurationLine(text, begin, end);
        begin = end + 1;
    }
    return masked + maskJsonPairs(text) + maskUrlCredentials(text);
}

size_t maskLineInPlace(char* line, size_t size) {
    if (!work::maskSecrets || size == 0) return 0;
    std::string text(line);
    size_t masked = maskLine(text);
    if (masked != 0) snprintf(line, size, "%s", text.c_str());
    return masked;
}
