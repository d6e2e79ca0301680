// Address parsers are strict on purpose: a token that is almost an address (an OID, a version,
// a time of day) must stay as it is, so each parser accepts the whole token or nothing.
#include "privacy/address_forms.h"

#include <cstdio>
#include <cstring>

namespace privacy {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// Hex groups of at most four digits between colons, one "::" at most, an IPv4 tail last.
bool parseGroups(const char* text, size_t size, uint16_t* groups, int& count, int& gap) {
    count = 0;
    gap = -1;
    size_t i = 0;
    if (size >= 2 && text[0] == ':' && text[1] == ':') {
        gap = 0;
        i = 2;
        if (i == size) return true;
    } else if (size > 0 && text[0] == ':') {
        return false;
    }
    while (i < size) {
        size_t begin = i;
        unsigned value = 0;
        while (i < size && i - begin < 5 && hexValue(text[i]) >= 0) value = value * 16 + hexValue(text[i++]);
        if (i < size && text[i] == '.') {  // the IPv4 tail takes the last two groups
            uint8_t tail[4];
            if (count > 6 || !parseIPv4(text + begin, size - begin, tail)) return false;
            groups[count++] = static_cast<uint16_t>(tail[0] << 8 | tail[1]);
            groups[count++] = static_cast<uint16_t>(tail[2] << 8 | tail[3]);
            return true;
        }
        if (i == begin || i - begin > 4 || count == 8) return false;
        groups[count++] = static_cast<uint16_t>(value);
        if (i == size) return true;
        if (text[i] != ':') return false;
        ++i;
        if (i < size && text[i] == ':') {
            if (gap >= 0) return false;
            gap = count;
            ++i;
            if (i == size) return true;
        } else if (i == size) {
            return false;  // a lone colon at the end
        }
    }
    return true;
}

}  // namespace

bool parseIPv4(const char* text, size_t size, uint8_t bytes[4]) {
    size_t i = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (i >= size || text[i] != '.') return false;
            ++i;
        }
        size_t begin = i;
        unsigned value = 0;
        while (i < size && i - begin < 4 && text[i] >= '0' && text[i] <= '9') value = value * 10 + (text[i++] - '0');
        if (i == begin || i - begin > 3 || value > 255) return false;
        bytes[part] = static_cast<uint8_t>(value);
    }
    return i == size;
}

std::string formatIPv4(const uint8_t bytes[4]) {
    char text[16];
    snprintf(text, sizeof text, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
    return text;
}

bool parseIPv6(const char* text, size_t size, uint8_t bytes[16]) {
    if (size < 2 || size > 45) return false;
    uint16_t groups[8] = {};
    int count = 0;
    int gap = -1;
    if (!parseGroups(text, size, groups, count, gap)) return false;
    if (gap < 0 ? count != 8 : count > 7) return false;
    uint16_t full[8] = {};
    int tail = gap < 0 ? 0 : count - gap;
    for (int g = 0; g < count; ++g) {
        int at = (gap >= 0 && g >= gap) ? 8 - tail + (g - gap) : g;
        full[at] = groups[g];
    }
    for (int g = 0; g < 8; ++g) {
        bytes[2 * g] = static_cast<uint8_t>(full[g] >> 8);
        bytes[2 * g + 1] = static_cast<uint8_t>(full[g] & 0xff);
    }
    return true;
}

std::string formatIPv6(const uint8_t bytes[16]) {
    unsigned groups[8];
    for (int g = 0; g < 8; ++g) groups[g] = static_cast<unsigned>(bytes[2 * g] << 8 | bytes[2 * g + 1]);
    int bestStart = -1;
    int bestLength = 1;
    for (int g = 0; g < 8;) {
        if (groups[g] != 0) {
            ++g;
            continue;
        }
        int start = g;
        while (g < 8 && groups[g] == 0) ++g;
        if (g - start > bestLength) {
            bestStart = start;
            bestLength = g - start;
        }
    }
    std::string text;
    char group[8];
    for (int g = 0; g < 8; ++g) {
        if (g == bestStart) {
            text += "::";
            g += bestLength - 1;
            continue;
        }
        if (!text.empty() && text.back() != ':') text += ':';
        snprintf(group, sizeof group, "%x", groups[g]);
        text += group;
    }
    return text;
}

bool parseMac(const char* text, size_t size, uint8_t bytes[6], MacForm& form, bool& upper) {
    upper = false;
    auto hexPair = [&](size_t at, uint8_t& out) {
        int high = hexValue(text[at]);
        int low = hexValue(text[at + 1]);
        if (high < 0 || low < 0) return false;
        upper = upper || (text[at] >= 'A' && text[at] <= 'F') || (text[at + 1] >= 'A' && text[at + 1] <= 'F');
        out = static_cast<uint8_t>(high << 4 | low);
        return true;
    };
    if (size == 17 && (text[2] == ':' || text[2] == '-')) {
        char separator = text[2];
        form = separator == ':' ? MAC_COLON : MAC_HYPHEN;
        for (int b = 0; b < 6; ++b) {
            if (b > 0 && text[3 * b - 1] != separator) return false;
            if (!hexPair(3 * static_cast<size_t>(b), bytes[b])) return false;
        }
        return true;
    }
    if (size == 14 && text[4] == '.' && text[9] == '.') {
        form = MAC_DOTTED;
        for (int b = 0; b < 6; ++b) {
            if (!hexPair(static_cast<size_t>(b / 2 * 5 + b % 2 * 2), bytes[b])) return false;
        }
        return true;
    }
    return false;
}

std::string formatMac(const uint8_t bytes[6], MacForm form, bool upper) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text;
    for (int b = 0; b < 6; ++b) {
        if (b > 0 && form != MAC_DOTTED) text += form == MAC_COLON ? ':' : '-';
        if (b > 0 && form == MAC_DOTTED && b % 2 == 0) text += '.';
        text += digits[bytes[b] >> 4];
        text += digits[bytes[b] & 15];
    }
    return text;
}

}  // namespace privacy
