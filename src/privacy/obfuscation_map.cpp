// Replacements are handed out in order of first sight and never change once given: a mapping
// that is reused must name a value as it did before, and two values never share a replacement.
#include "privacy/obfuscation_map.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace privacy {

namespace {

const char* const KIND_NAMES[OBF_KIND_COUNT] = {"hosts", "domains", "ipv4", "ipv6",
                                                "mac",   "users",   "keywords"};
// Addresses map into 100.64.0.0/10: 16384 networks of 256 addresses.
constexpr uint32_t IPV4_NETWORKS = 1u << 14;

std::string lowerCase(const std::string& text) {
    std::string lower(text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    while (!lower.empty() && lower.back() == '.') lower.pop_back();
    return lower;
}

/// Names that stand for no one in particular: the loopback names and bare numbers.
bool namesNoOne(const std::string& lower) {
    if (lower.empty() || lower.compare(0, 9, "localhost") == 0 || lower.compare(0, 4, "ip6-") == 0)
        return true;
    for (char c : lower)
        if (std::isalpha(static_cast<unsigned char>(c))) return false;
    return true;
}

uint64_t lengthBit(size_t size) { return 1ull << (size < 63 ? size : 63); }

uint64_t macKey(const uint8_t bytes[6]) {
    uint64_t key = 0;
    for (int b = 0; b < 6; ++b) key = key << 8 | bytes[b];
    return key;
}

unsigned pairIndex(const char* lower, size_t size) {
    return static_cast<unsigned char>(lower[0]) << 8 | (size > 1 ? static_cast<unsigned char>(lower[1]) : 0);
}

}  // namespace

const char* obfuscationKindName(int kind) {
    return kind >= 0 && kind < OBF_KIND_COUNT ? KIND_NAMES[kind] : "unknown";
}

unsigned long long ObfuscationCounts::total() const {
    unsigned long long sum = 0;
    for (unsigned long long count : byKind) sum += count;
    return sum;
}

void ObfuscationCounts::add(const ObfuscationCounts& other) {
    for (int kind = 0; kind < OBF_KIND_COUNT; ++kind) byKind[kind] += other.byKind[kind];
}

ObfuscationMap::ObfuscationMap() : wordStarts((1u << 16) / 64, 0), domainStarts((1u << 16) / 64, 0) {}

void ObfuscationMap::learnWord(const std::string& lower) {
    if (lower.size() < 64) wordLengths |= 1ull << lower.size();
    dottedWords = dottedWords || lower.find('.') != std::string::npos;
    if (lower.empty()) return;
    unsigned pair = pairIndex(lower.data(), lower.size());
    wordStarts[pair / 64] |= 1ull << (pair % 64);
}

void ObfuscationMap::rememberDomain(const std::string& lower) {
    domainSet.insert(lower);
    domainLengths |= lengthBit(lower.size());
    if (lower.empty()) return;
    unsigned pair = pairIndex(lower.data(), lower.size());
    domainStarts[pair / 64] |= 1ull << (pair % 64);
}

bool ObfuscationMap::isKnownDomain(const char* lower, size_t size) const {
    return (domainLengths & lengthBit(size)) != 0 && domainSet.count(std::string(lower, size)) != 0;
}

const std::string* ObfuscationMap::domainCutTo(const char* lower, size_t size) const {
    const std::string* found = nullptr;
    if (size == 0) return found;
    unsigned pair = pairIndex(lower, size);
    if ((domainStarts[pair / 64] >> (pair % 64) & 1) == 0) return found;  // the usual answer, cheaply
    for (const std::string& domain : domainSet) {
        if (domain.size() <= size || domain.compare(0, size, lower, size) != 0) continue;
        if (found == nullptr || domain.size() < found->size() || (domain.size() == found->size() && domain < *found))
            found = &domain;
    }
    return found;
}

ObfuscationMap::Entry& ObfuscationMap::addAddress(int kind, const std::string& key, const std::string& replacement) {
    Entry& entry = tables[kind][key];
    entry.replacement = replacement;
    entry.used = true;
    return entry;
}

void ObfuscationMap::learnDomain(const std::string& lower) {
    if (lower.find('.') != std::string::npos || !namesNoOne(lower)) rememberDomain(lower);
}

void ObfuscationMap::configure(const ObfuscationSettings& settings) {
    std::vector<std::string> names = settings.hostsFileNames;
    names.push_back(settings.hostName);
    names.push_back(settings.fqdn);
    for (const std::string& name : names) {
        std::string lower = lowerCase(name);
        if (namesNoOne(lower)) continue;
        size_t dot = lower.find('.');
        if (dot != std::string::npos) learnDomain(lower.substr(dot + 1));
        std::string label = lower.substr(0, dot);
        if (namesNoOne(label)) continue;
        shortHosts.insert(label);
        learnWord(label);
    }
    for (const std::string& domain : settings.domains) {
        std::string lower = lowerCase(domain);
        while (!lower.empty() && lower[0] == '.') lower.erase(0, 1);
        if (!namesNoOne(lower)) learnDomain(lower);
    }
    for (const std::string& user : settings.users) {
        std::string lower = lowerCase(user);
        if (namesNoOne(lower)) continue;
        userSet.insert(lower);
        learnWord(lower);
    }
    for (const std::string& keyword : settings.keywords) {
        std::string lower = lowerCase(keyword);
        if (namesNoOne(lower)) continue;
        keywordSet.insert(lower);
        learnWord(lower);
    }
}

size_t ObfuscationMap::usedCount(int kind) const {
    size_t count = 0;
    for (const auto& entry : tables[kind]) count += entry.second.used ? 1 : 0;
    return count;
}

bool ObfuscationMap::mayBeWord(const char* lower, size_t size) const {
    if (size == 0 || size >= 64 || (wordLengths >> size & 1) == 0) return false;
    unsigned pair = pairIndex(lower, size);
    return (wordStarts[pair / 64] >> (pair % 64) & 1) != 0;
}

const std::string& ObfuscationMap::assign(int kind, const std::string& key, const std::string& replacement) {
    Entry& entry = tables[kind][key];
    if (entry.replacement.empty()) entry.replacement = replacement;
    entry.used = true;
    return entry.replacement;
}

const std::string& ObfuscationMap::nameFor(int kind, const std::string& key) {
    auto found = tables[kind].find(key);
    if (found != tables[kind].end()) {
        found->second.used = true;
        return found->second.replacement;
    }
    static const char* const PREFIXES[OBF_KIND_COUNT] = {"host", "domain", "", "", "", "user", "keyword"};
    std::string name = PREFIXES[kind] + std::to_string(nextName[kind]++);
    return assign(kind, key, kind == OBF_DOMAINS ? name + ".example" : name);
}

const std::string* ObfuscationMap::replaceWord(const std::string& lower, int& kind, bool withHosts) {
    if (withHosts && shortHosts.count(lower) != 0) kind = OBF_HOSTS;
    else if (userSet.count(lower) != 0) kind = OBF_USERS;
    else if (keywordSet.count(lower) != 0) kind = OBF_KEYWORDS;
    else return nullptr;
    return &nameFor(kind, lower);
}

const std::string& ObfuscationMap::replaceHost(const std::string& lowerLabel) {
    if (shortHosts.insert(lowerLabel).second) learnWord(lowerLabel);
    return nameFor(OBF_HOSTS, lowerLabel);
}

const std::string& ObfuscationMap::replaceDomain(const std::string& lowerDomain) {
    return nameFor(OBF_DOMAINS, lowerDomain);
}

bool ObfuscationMap::replaceIPv4(const uint8_t bytes[4], std::string& out) {
    if (bytes[0] == 127 || bytes[0] == 255 || (bytes[0] | bytes[1] | bytes[2] | bytes[3]) == 0) return false;
    uint32_t key = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
    auto found = index4.find(key);
    if (found != index4.end()) {
        found->second->used = true;
        out = found->second->replacement;
        return true;
    }
    uint32_t network = key >> 8;
    auto known = networks4.find(network);
    uint32_t index = known != networks4.end() ? known->second : nextNetwork4;
    if (known == networks4.end()) {
        if (nextNetwork4 >= IPV4_NETWORKS) {  // every network handed out: hide, never share
            out = "x.x.x.x";
            return true;
        }
        networks4[network] = nextNetwork4++;
    }
    uint8_t replaced[4] = {100, static_cast<uint8_t>(64 + index / 256), static_cast<uint8_t>(index % 256), bytes[3]};
    Entry& entry = addAddress(OBF_IPV4, formatIPv4(bytes), formatIPv4(replaced));
    index4[key] = &entry;
    out = entry.replacement;
    return true;
}

bool ObfuscationMap::replaceIPv6(const uint8_t bytes[16], std::string& out) {
    static const uint8_t LOOPBACK[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    static const uint8_t ANY[16] = {};
    if (memcmp(bytes, LOOPBACK, 16) == 0 || memcmp(bytes, ANY, 16) == 0) return false;
    std::string key(reinterpret_cast<const char*>(bytes), 16);
    auto found = index6.find(key);
    if (found != index6.end()) {
        found->second->used = true;
        out = found->second->replacement;
        return true;
    }
    std::string network(reinterpret_cast<const char*>(bytes), 8);
    auto known = networks6.find(network);
    uint64_t index = known != networks6.end() ? known->second : nextNetwork6;
    if (known == networks6.end()) networks6[network] = nextNetwork6++;
    uint8_t replaced[16] = {0xfd};
    for (int b = 0; b < 6; ++b) replaced[2 + b] = static_cast<uint8_t>(index >> (8 * (5 - b)));
    // A network's own address (no interface part) stays one, so that routes still read as routes.
    static const uint8_t NO_INTERFACE[8] = {};
    if (memcmp(bytes + 8, NO_INTERFACE, 8) != 0) {
        uint64_t number = ++nextInterface6[index];
        for (int b = 0; b < 8; ++b) replaced[8 + b] = static_cast<uint8_t>(number >> (8 * (7 - b)));
    }
    Entry& entry = addAddress(OBF_IPV6, formatIPv6(bytes), formatIPv6(replaced));
    index6[key] = &entry;
    out = entry.replacement;
    return true;
}

bool ObfuscationMap::replaceMac(const uint8_t bytes[6], MacForm form, bool upper, std::string& out) {
    bool zero = true;
    bool broadcast = true;
    for (int b = 0; b < 6; ++b) {
        zero = zero && bytes[b] == 0;
        broadcast = broadcast && bytes[b] == 0xff;
    }
    if (zero || broadcast) return false;
    uint64_t key = macKey(bytes);
    auto found = indexMac.find(key);
    std::string replacement;
    if (found != indexMac.end()) {
        found->second->used = true;
        replacement = found->second->replacement;
    } else {
        // The maker's three bytes stay: support tells a virtual card from a physical one by them.
        uint8_t replaced[6] = {bytes[0], bytes[1], bytes[2], static_cast<uint8_t>(nextMac >> 16),
                               static_cast<uint8_t>(nextMac >> 8), static_cast<uint8_t>(nextMac)};
        ++nextMac;
        Entry& entry = addAddress(OBF_MAC, formatMac(bytes, MAC_COLON, false), formatMac(replaced, MAC_COLON, false));
        indexMac[key] = &entry;
        replacement = entry.replacement;
    }
    uint8_t stored[6];
    MacForm storedForm;
    bool storedUpper;
    if (!parseMac(replacement.data(), replacement.size(), stored, storedForm, storedUpper)) return false;
    out = formatMac(stored, form, upper);
    return true;
}

}  // namespace privacy
