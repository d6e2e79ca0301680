// The obfuscation mapping: which names, addresses and words of a machine are replaced, and by
// what. One mapping serves a machine across runs, so that two archives of one case name the same
// host alike; it is pure data here (JSON text in and out), the caller keeps the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "privacy/address_forms.h"

namespace privacy {

/// What a replaced value was; every replacement is counted under exactly one kind.
enum ObfuscationKind : int {
    OBF_HOSTS, OBF_DOMAINS, OBF_IPV4, OBF_IPV6, OBF_MAC, OBF_USERS, OBF_KEYWORDS, OBF_KIND_COUNT
};

/// The kind's name as the mapping and the logs show it ("hosts", "domains", "ipv4", ...).
const char* obfuscationKindName(int kind);

/// Replacements made, by kind.
struct ObfuscationCounts {
    unsigned long long byKind[OBF_KIND_COUNT] = {};
    unsigned long long total() const;
    void add(const ObfuscationCounts& other);
};

/// The machine's facts that say what to replace; gathered by the caller.
struct ObfuscationSettings {
    std::string hostName;                    // short or fully qualified
    std::string fqdn;                        // empty when unknown
    std::vector<std::string> domains;        // names in these and their subdomains are replaced
    std::vector<std::string> hostsFileNames; // every name /etc/hosts lists
    std::vector<std::string> users;
    std::vector<std::string> keywords;
};

class ObfuscationMap {
public:
    ObfuscationMap();
    // The address indexes point into the tables: a copy would point into the original's.
    ObfuscationMap(const ObfuscationMap&) = delete;
    ObfuscationMap& operator=(const ObfuscationMap&) = delete;
    ObfuscationMap(ObfuscationMap&&) = default;
    ObfuscationMap& operator=(ObfuscationMap&&) = default;
    /// Makes the settings' names known. Loopback names ("localhost...", "ip6-...") and
    /// all-digit names are never taken: they name no one.
    void configure(const ObfuscationSettings& settings);

    /// Replaces the whole mapping with the one in text; false, the mapping unchanged, when text
    /// is not a whole, consistent mapping.
    bool load(const std::string& text);
    /// The whole mapping as JSON text, keys in order.
    std::string save() const { return render(false); }
    /// Only what was replaced since the mapping was made or loaded: one archive's record.
    std::string saveUsed() const { return render(true); }
    /// Distinct values of the kind replaced since the mapping was made or loaded.
    size_t usedCount(int kind) const;

    // The filter's look-ups. Each marks what it returns as used.
    /// Whether a lower-case word may be a known host, user or keyword (a cheap first test).
    bool mayBeWord(const char* lower, size_t size) const;
    /// The replacement of a known short host name, user or keyword, with its kind; null if none.
    /// withHosts false: users and keywords only.
    const std::string* replaceWord(const std::string& lower, int& kind, bool withHosts = true);
    bool isKnownDomain(const char* lower, size_t size) const;
    /// The known domain that lower, a name cut short, is the start of (the shortest, then the
    /// first in order, so that the answer does not hang on the order names were learned); null
    /// when none is.
    const std::string* domainCutTo(const char* lower, size_t size) const;
    bool isShortHost(const std::string& lower) const { return shortHosts.count(lower) != 0; }
    /// Whether a known user or keyword holds a dot ("john.smith").
    bool hasDottedWords() const { return dottedWords; }
    /// The replacement of a host's first label, which becomes known as a short name.
    const std::string& replaceHost(const std::string& lowerLabel);
    const std::string& replaceDomain(const std::string& lowerDomain);
    /// False when the address is one that is kept (loopback, netmask, any, broadcast).
    bool replaceIPv4(const uint8_t bytes[4], std::string& out);
    bool replaceIPv6(const uint8_t bytes[16], std::string& out);
    bool replaceMac(const uint8_t bytes[6], MacForm form, bool upper, std::string& out);

private:
    struct Entry {
        std::string replacement;
        bool used = false;
    };
    using Table = std::unordered_map<std::string, Entry>;
    const std::string& assign(int kind, const std::string& key, const std::string& replacement);
    const std::string& nameFor(int kind, const std::string& key);
    void learnWord(const std::string& lower);
    void learnDomain(const std::string& lower);
    void rememberDomain(const std::string& lower);
    /// The entry of an address first seen: stored under its text, indexed by its bytes.
    Entry& addAddress(int kind, const std::string& key, const std::string& replacement);
    std::string render(bool usedOnly) const;
    bool rebuild();

    Table tables[OBF_KIND_COUNT];
    unsigned long long nextName[OBF_KIND_COUNT] = {};
    std::unordered_set<std::string> shortHosts, domainSet, userSet, keywordSet;
    std::unordered_map<uint32_t, uint32_t> networks4;        // original /24 -> index
    std::unordered_map<std::string, uint64_t> networks6;     // original /64 -> index
    std::unordered_map<uint64_t, uint64_t> nextInterface6;   // index -> next interface number
    uint32_t nextNetwork4 = 0;
    uint64_t nextNetwork6 = 0;
    uint32_t nextMac = 1;
    // Addresses are looked up by their bytes: formatting each one met would cost more than the rest.
    std::unordered_map<uint32_t, Entry*> index4;
    std::unordered_map<std::string, Entry*> index6;
    std::unordered_map<uint64_t, Entry*> indexMac;
    uint64_t wordLengths = 0;            // bit n: a known word has n characters (n < 64)
    uint64_t domainLengths = 0;          // bit n: a known domain has n characters (63: or more)
    std::vector<uint64_t> wordStarts;    // bits: the first two characters of known words
    std::vector<uint64_t> domainStarts;  // bits: the first two characters of known domains
    bool dottedWords = false;
};

}  // namespace privacy

namespace privacy {

/// Whether text (the first bytes of a file) opens as a mapping that ObfuscationMap::save() writes.
bool looksLikeMapping(const char* text, size_t size);

}  // namespace privacy
