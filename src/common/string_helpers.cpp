// String and number helpers.
#include "common/string_helpers.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"

namespace {
// Counts arrive as unsigned long but mean signed 32-bit values: anything that is zero or
// negative in 32 bits touches nothing.
int32_t countOf(unsigned long n) { return static_cast<int32_t>(static_cast<uint32_t>(n)); }
}  // namespace

char* format_number(char* buffer, unsigned long size) {
    if (buffer == nullptr || size == 0 || buffer[0] == '\0') return buffer;
    // One byte more than the buffer: text without a sign may fill all size bytes unterminated,
    // and its copy still needs a terminator.
    std::unique_ptr<char[]> scratch(new (std::nothrow) char[size + 1]);
    if (!scratch) return buffer;

    char* out = buffer;
    const char* text = buffer;
    if (*text == '+' || *text == '-') {
        ++out;
        ++text;
    }
    size_t length = strnlen(text, size - static_cast<size_t>(text - buffer));
    memcpy(scratch.get(), text, length);
    scratch[length] = '\0';
    memset(out, 0, size - static_cast<size_t>(out - buffer));

    const char* point = strchr(scratch.get(), '.');
    size_t digits = point != nullptr ? static_cast<size_t>(point - scratch.get()) : length;
    // The grouped text may be longer than the original; the caller sized the buffer for it,
    // but never write past the end we were given.
    char* end = buffer + size - 1;
    for (size_t i = 0; i < digits && out < end; ++i) {
        size_t remaining = digits - i;
        // A locale that does not group digits gets the figure whole: a NUL written here would
        // end the text after its first group.
        if (i > 0 && remaining % 3 == 0 && work::thousandsSeparator != '\0') {
            *out++ = work::thousandsSeparator;
            if (out >= end) break;
        }
        *out++ = scratch[i];
    }
    if (point != nullptr) {
        for (const char* p = point; *p != '\0' && out < end; ++p) *out++ = *p;
    }
    return buffer;
}

bool str_isnumeric(const char* s, unsigned long n) {
    for (int32_t i = 0; i < countOf(n); ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
    }
    return true;
}

bool str_isalphanumeric(const char* s, unsigned long n) {
    for (int32_t i = 0; i < countOf(n); ++i) {
        if (!isalnum(static_cast<unsigned char>(s[i]))) return false;
    }
    return true;
}

char* str_replace(char* s, unsigned long n, int from, int to) {
    for (int32_t i = 0; i < countOf(n); ++i) {
        if (s[i] == static_cast<char>(from)) s[i] = static_cast<char>(to);
    }
    return s;
}

unsigned long str_replace(char* s, unsigned long size, const char* from, const char* to) {
    size_t length = strlen(s);
    size_t fromLength = strlen(from);
    // An empty pattern would match forever.
    if (fromLength == 0) return length;
    size_t toLength = strlen(to);

    size_t count = 0;
    for (const char* p = strstr(s, from); p != nullptr; p = strstr(p + fromLength, from)) ++count;
    if (count == 0) return length;

    size_t workLength = length + count * toLength - count * fromLength + 1;
    std::unique_ptr<char[]> result(new (std::nothrow) char[workLength]);
    if (!result) {
        logError("src/functions", __LINE__, STATUS_ERROR, _("buffer allocation of %ld bytes failed"),
                 static_cast<long>(workLength));
        return 0;
    }
    memset(result.get(), 0, workLength);
    char* out = result.get();
    const char* rest = s;
    for (const char* p = strstr(rest, from); p != nullptr; p = strstr(rest, from)) {
        memcpy(out, rest, static_cast<size_t>(p - rest));
        out += p - rest;
        memcpy(out, to, toLength);
        out += toLength;
        rest = p + fromLength;
    }
    memcpy(out, rest, strlen(rest));

    memset(s, 0, size);
    if (size == 0) return 0;
    size_t copied = strnlen(result.get(), size - 1);
    memcpy(s, result.get(), copied);
    return copied;
}

char* str_tolower(char* s, unsigned long n) {
    for (int32_t i = 0; i < countOf(n); ++i) {
        s[i] = static_cast<char>(tolower(static_cast<unsigned char>(s[i])));
    }
    return s;
}

char* str_toupper(char* s, unsigned long n) {
    for (int32_t i = 0; i < countOf(n); ++i) {
        s[i] = static_cast<char>(toupper(static_cast<unsigned char>(s[i])));
    }
    return s;
}

std::list<std::string> split(std::string text, std::string delimiter) {
    std::list<std::string> pieces;
    if (delimiter.empty()) {
        pieces.push_back(text);
        return pieces;
    }
    size_t start = 0;
    for (;;) {
        size_t found = text.find(delimiter, start);
        if (found == std::string::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, found - start));
        start = found + delimiter.size();
    }
}
