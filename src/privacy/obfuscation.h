// Obfuscation: host names, domains, addresses, user names and customer words in gathered text
// replaced by stable stand-ins (host0, domain0.example, 100.64.x.x, fd00::, user0, keyword0)
// from one ObfuscationMap, so that the same value reads alike in every member and every name.
#pragma once

#include <cstddef>
#include <string>

#include "privacy/obfuscation_map.h"
#include "privacy/text_filter.h"

namespace privacy {

/// Obfuscates one member as a stream: feed() it the bytes in any chunks, then finish() once.
/// The output is appended to `out` and is the same whatever the chunking. Memory stays bounded:
/// only an unfinished token is held back, and a token longer than any name or address
/// (OBFUSCATION_TOKEN_LIMIT bytes) is passed on as it is.
class ObfuscationFilter : public TextFilter {
public:
    explicit ObfuscationFilter(ObfuscationMap& mapping) : map(mapping) {}
    void feed(const char* data, size_t size, std::string& out) override;
    void finish(std::string& out) override;
    const ObfuscationCounts& counts() const { return replaced; }

private:
    size_t scan(const char* data, size_t size, bool last, std::string& out);
    ObfuscationMap& map;
    std::string held;
    std::string scratch;
    bool skipping = false;  // inside an overlong token, passed on as it comes
    ObfuscationCounts replaced;
};

constexpr size_t OBFUSCATION_TOKEN_LIMIT = 1024;

/// A member's name or an archive's file name, obfuscated as its text would be; replacements are
/// added to *counts when given.
std::string obfuscateName(ObfuscationMap& map, const std::string& name, ObfuscationCounts* counts = nullptr);

}  // namespace privacy
