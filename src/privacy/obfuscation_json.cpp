// The mapping's own JSON text: a flat, fixed shape read by a strict reader of its own, so that a
// damaged or foreign file is refused whole rather than half taken, and the filter layer needs no
// parser with side effects.
#include "privacy/json_text.h"
#include "privacy/obfuscation_map.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

namespace privacy {

void appendJsonQuoted(std::string& out, const std::string& text) {
    out += '"';
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            static const char HEX[] = "0123456789abcdef";
            out += "\\u00";
            out += HEX[c >> 4];
            out += HEX[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
}

namespace {

constexpr const char* FORMAT_NAME = "gatr-obfuscation-map";


struct Reader {
    const std::string& text;
    size_t at = 0;

    void skipBlanks() {
        while (at < text.size() && (text[at] == ' ' || text[at] == '\n' || text[at] == '\r' || text[at] == '\t')) ++at;
    }
    bool take(char c) {
        skipBlanks();
        if (at >= text.size() || text[at] != c) return false;
        ++at;
        return true;
    }
    bool readString(std::string& out) {
        if (!take('"')) return false;
        out.clear();
        while (at < text.size() && text[at] != '"') {
            char c = text[at++];
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (at >= text.size()) return false;
            char escaped = text[at++];
            if (escaped == '"' || escaped == '\\' || escaped == '/') {
                out += escaped;
            } else if (escaped == 'u' && at + 4 <= text.size()) {
                char* end = nullptr;
                std::string digits = text.substr(at, 4);
                long value = strtol(digits.c_str(), &end, 16);
                if (*end != '\0' || value >= 0x20) return false;  // only the controls it writes
                out += static_cast<char>(value);
                at += 4;
            } else {
                return false;
            }
        }
        return take('"');
    }
    bool readPairs(std::vector<std::pair<std::string, std::string>>& pairs) {
        if (!take('{')) return false;
        if (take('}')) return true;
        do {
            std::string key, value;
            if (!readString(key) || !take(':') || !readString(value)) return false;
            pairs.emplace_back(key, value);
        } while (take(','));
        return take('}');
    }
};

/// The number after prefix in "<prefix><n><suffix>", or -1.
long long nameNumber(const std::string& name, const std::string& prefix, const std::string& suffix) {
    if (name.size() <= prefix.size() + suffix.size() || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
        return -1;
    std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.size() > 12 || digits.find_first_not_of("0123456789") != std::string::npos) return -1;
    return std::stoll(digits);
}

}  // namespace

std::string ObfuscationMap::render(bool usedOnly) const {
    std::string out = "{\n  \"format\": \"";
    out += FORMAT_NAME;
    out += "\",\n  \"version\": 1";
    for (int kind = 0; kind < OBF_KIND_COUNT; ++kind) {
        std::vector<std::pair<std::string, std::string>> rows;
        for (const auto& entry : tables[kind])
            if (!usedOnly || entry.second.used) rows.emplace_back(entry.first, entry.second.replacement);
        std::sort(rows.begin(), rows.end());
        out += ",\n  ";
        appendJsonQuoted(out, obfuscationKindName(kind));
        out += ": {";
        for (size_t i = 0; i < rows.size(); ++i) {
            out += i == 0 ? "\n    " : ",\n    ";
            appendJsonQuoted(out, rows[i].first);
            out += ": ";
            appendJsonQuoted(out, rows[i].second);
        }
        out += rows.empty() ? "}" : "\n  }";
    }
    out += "\n}\n";
    return out;
}

bool ObfuscationMap::load(const std::string& text) {
    Reader reader{text};
    std::string key, value;
    if (!reader.take('{') || !reader.readString(key) || key != "format" || !reader.take(':') ||
        !reader.readString(value) || value != FORMAT_NAME || !reader.take(',') || !reader.readString(key) ||
        key != "version" || !reader.take(':') || !reader.take('1'))
        return false;
    std::vector<std::pair<std::string, std::string>> rows[OBF_KIND_COUNT];
    for (int kind = 0; kind < OBF_KIND_COUNT; ++kind) {
        if (!reader.take(',') || !reader.readString(key) || key != obfuscationKindName(kind) || !reader.take(':') ||
            !reader.readPairs(rows[kind]))
            return false;
    }
    if (!reader.take('}')) return false;
    reader.skipBlanks();
    if (reader.at != text.size()) return false;

    ObfuscationMap loaded;
    loaded.shortHosts = shortHosts;
    loaded.domainSet = domainSet;
    loaded.domainLengths = domainLengths;
    loaded.userSet = userSet;
    loaded.keywordSet = keywordSet;
    loaded.wordLengths = wordLengths;
    loaded.wordStarts = wordStarts;
    loaded.domainStarts = domainStarts;
    loaded.dottedWords = dottedWords;
    for (int kind = 0; kind < OBF_KIND_COUNT; ++kind)
        for (const auto& row : rows[kind])
            if (!loaded.tables[kind].emplace(row.first, Entry{row.second, false}).second) return false;
    if (!loaded.rebuild()) return false;
    *this = std::move(loaded);
    return true;
}

/// Checks every row of freshly read tables and derives the counters and known names from them.
bool ObfuscationMap::rebuild() {
    static const char* const PREFIXES[OBF_KIND_COUNT] = {"host", "domain", "", "", "", "user", "keyword"};
    for (int kind = 0; kind < OBF_KIND_COUNT; ++kind) {
        std::set<std::string> replacements;
        for (auto& row : tables[kind]) {
            const std::string& original = row.first;
            const std::string& replacement = row.second.replacement;
            if (!replacements.insert(replacement).second || original.empty()) return false;
            if (kind == OBF_IPV4) {
                uint8_t from[4], to[4];
                if (!parseIPv4(original.data(), original.size(), from) ||
                    !parseIPv4(replacement.data(), replacement.size(), to) || to[0] != 100 || to[1] < 64 ||
                    to[1] > 127 || from[3] != to[3])
                    return false;
                uint32_t network = static_cast<uint32_t>(from[0] << 16 | from[1] << 8 | from[2]);
                uint32_t index = static_cast<uint32_t>((to[1] - 64) * 256 + to[2]);
                auto placed = networks4.emplace(network, index);
                if (placed.first->second != index) return false;
                nextNetwork4 = std::max(nextNetwork4, index + 1);
                index4[static_cast<uint32_t>(network << 8 | from[3])] = &row.second;
            } else if (kind == OBF_IPV6) {
                uint8_t from[16], to[16];
                if (!parseIPv6(original.data(), original.size(), from) ||
                    !parseIPv6(replacement.data(), replacement.size(), to) || to[0] != 0xfd || to[1] != 0)
                    return false;
                uint64_t index = 0;
                uint64_t number = 0;
                for (int b = 0; b < 6; ++b) index = index << 8 | to[2 + b];
                for (int b = 0; b < 8; ++b) number = number << 8 | to[8 + b];
                bool networkAddress = std::all_of(from + 8, from + 16, [](uint8_t byte) { return byte == 0; });
                if (networkAddress != (number == 0)) return false;  // only a network's own address has no interface part
                auto placed = networks6.emplace(std::string(reinterpret_cast<char*>(from), 8), index);
                if (placed.first->second != index) return false;
                nextNetwork6 = std::max(nextNetwork6, index + 1);
                uint64_t& next = nextInterface6[index];
                next = std::max(next, number);
                index6[std::string(reinterpret_cast<char*>(from), 16)] = &row.second;
            } else if (kind == OBF_MAC) {
                uint8_t from[6], to[6];
                MacForm form;
                bool upper;
                if (!parseMac(original.data(), original.size(), from, form, upper) ||
                    !parseMac(replacement.data(), replacement.size(), to, form, upper) ||
                    std::equal(from, from + 3, to) == false)
                    return false;
                nextMac = std::max(nextMac, static_cast<uint32_t>(to[3] << 16 | to[4] << 8 | to[5]) + 1);
                uint64_t key = 0;
                for (int b = 0; b < 6; ++b) key = key << 8 | from[b];
                indexMac[key] = &row.second;
            } else {
                long long number = nameNumber(replacement, PREFIXES[kind], kind == OBF_DOMAINS ? ".example" : "");
                if (number < 0) return false;
                nextName[kind] = std::max(nextName[kind], static_cast<unsigned long long>(number) + 1);
                if (kind == OBF_DOMAINS) {
                    rememberDomain(original);
                } else {
                    (kind == OBF_HOSTS ? shortHosts : kind == OBF_USERS ? userSet : keywordSet).insert(original);
                    learnWord(original);
                }
            }
        }
    }
    // Replacements of networks and cards are numbered too: a reused one would share.
    std::set<uint32_t> networkIndexes;
    for (const auto& network : networks4)
        if (!networkIndexes.insert(network.second).second) return false;
    std::set<uint64_t> network6Indexes;
    for (const auto& network : networks6)
        if (!network6Indexes.insert(network.second).second) return false;
    return true;
}

}  // namespace privacy

namespace privacy {

bool looksLikeMapping(const char* text, size_t size) {
    std::string head(text, std::min<size_t>(size, 256));
    Reader reader{head};
    std::string key, value;
    return reader.take('{') && reader.readString(key) && key == "format" && reader.take(':') &&
           reader.readString(value) && value == FORMAT_NAME;
}

}  // namespace privacy
