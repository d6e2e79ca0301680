// The obfuscation filter cuts text into tokens (runs of letters, digits and . : - _), so that a
// name or address is only ever taken whole: letters inside a longer word, or a dotted quad inside
// a longer dotted number, are never replaced. Most tokens are turned away by their character
// classes and length before any look-up, which keeps the pass near copying speed.
#include "privacy/obfuscation.h"

#include <algorithm>
#include <cstring>

namespace privacy {

namespace {

enum : uint8_t { C_DIGIT = 1, C_ALPHA = 2, C_DOT = 4, C_COLON = 8, C_HYPHEN = 16, C_UNDERSCORE = 32 };

struct CharClasses {
    uint8_t of[256] = {};
    CharClasses() {
        for (int c = '0'; c <= '9'; ++c) of[c] = C_DIGIT;
        for (int c = 'a'; c <= 'z'; ++c) of[c] = of[c - 'a' + 'A'] = C_ALPHA;
        of[static_cast<unsigned char>('.')] = C_DOT;
        of[static_cast<unsigned char>(':')] = C_COLON;
        of[static_cast<unsigned char>('-')] = C_HYPHEN;
        of[static_cast<unsigned char>('_')] = C_UNDERSCORE;
    }
};
const CharClasses CLASSES;

char lowerChar(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// Rewrites one token with the map; counts each replacement by kind.
class TokenRewriter {
public:
    TokenRewriter(ObfuscationMap& mapping, ObfuscationCounts& counts) : map(mapping), replaced(counts) {}

    /// Appends the token's replacement to out and returns true, or returns false and appends
    /// nothing when the token stays as it is.
    bool rewrite(const char* token, size_t size, unsigned flags, std::string& out) {
        if (!worthLooking(token, size, flags)) return false;
        size_t begin = 0;
        size_t end = size;
        while (begin < end && token[begin] == '.') ++begin;  // a sentence's full stop, a root dot
        while (end > begin && token[end - 1] == '.') --end;
        if (begin == end) return false;
        std::string replacement;
        bool changed = (flags & C_COLON) ? rewriteColonToken(token + begin, end - begin, replacement)
                                         : rewritePiece(token + begin, end - begin, replacement);
        if (!changed) return false;
        out.append(token, begin);
        out += replacement;
        out.append(token + end, size - end);
        return true;
    }

private:
    bool worthLooking(const char* token, size_t size, unsigned flags) const {
        if ((flags & (C_DOT | C_COLON | C_UNDERSCORE | C_HYPHEN)) != 0) return true;
        if ((flags & C_ALPHA) == 0) return false;  // a number
        char start[2] = {lowerChar(token[0]), size > 1 ? lowerChar(token[1]) : '\0'};
        return map.mayBeWord(start, size);
    }

    bool count(int kind) {
        ++replaced.byKind[kind];
        return true;
    }

    bool rewriteColonToken(const char* text, size_t size, std::string& out) {
        uint8_t bytes[16];
        MacForm form;
        bool upper;
        if (size == 17 && parseMac(text, size, bytes, form, upper))
            return map.replaceMac(bytes, form, upper, out) && count(OBF_MAC);
        // A digit is asked for so that a C++ scope ("ace::add") is not read as an address.
        bool digit = false;
        for (size_t i = 0; i < size && !digit; ++i) digit = CLASSES.of[static_cast<unsigned char>(text[i])] == C_DIGIT;
        if (digit && parseIPv6(text, size, bytes)) return rewriteIPv6(bytes, out);
        // netstat writes a peer's port after its IPv6 address with one more colon
        // ("2001:db8::6:48122"); a port of five digits is no address group.
        // Only a head of two colons or more may be one: a time of day ("10:00:01") is not tried.
        size_t port = size;
        while (port > 0 && CLASSES.of[static_cast<unsigned char>(text[port - 1])] == C_DIGIT) --port;
        if (digit && port >= 3 && port < size && size - port <= 5 && text[port - 1] == ':' &&
            std::count(text, text + port - 1, ':') >= 2 && parseIPv6(text, port - 1, bytes) &&
            rewriteIPv6(bytes, out)) {
            out.append(text + port - 1, size - port + 1);
            return true;
        }
        return rewriteParts(text, size, ':', out, &TokenRewriter::rewritePiece);
    }

    bool rewriteIPv6(const uint8_t bytes[16], std::string& out) {
        static const uint8_t MAPPED[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        if (memcmp(bytes, MAPPED, 12) != 0) return map.replaceIPv6(bytes, out) && count(OBF_IPV6);
        // An IPv4 address in IPv6 dress reads as the same IPv4 address does.
        if (!map.replaceIPv4(bytes + 12, out)) return false;
        out.insert(0, "::ffff:");
        return count(OBF_IPV4);
    }

    /// Each part between separators rewritten alone, the separators kept.
    bool rewriteParts(const char* text, size_t size, char separator, std::string& out,
                      bool (TokenRewriter::*rewritePart)(const char*, size_t, std::string&)) {
        // Nothing is copied until a part changes: most tokens come out as they went in.
        bool changed = false;
        std::string part;
        size_t begin = 0;
        for (size_t i = 0; i <= size; ++i) {
            if (i < size && text[i] != separator) continue;
            part.clear();
            if ((this->*rewritePart)(text + begin, i - begin, part)) {
                if (!changed) out.assign(text, begin);
                changed = true;
                out += part;
            } else if (changed) {
                out.append(text + begin, i - begin);
            }
            if (changed && i < size) out += separator;
            begin = i + 1;
        }
        return changed;
    }

    bool rewritePiece(const char* text, size_t size, std::string& out) {
        if (size == 0) return false;
        uint8_t bytes[6];
        MacForm form;
        bool upper;
        if ((size == 17 || size == 14) && parseMac(text, size, bytes, form, upper))
            return map.replaceMac(bytes, form, upper, out) && count(OBF_MAC);
        bool alpha = false;
        for (size_t i = 0; i < size && !alpha; ++i) alpha = CLASSES.of[static_cast<unsigned char>(text[i])] == C_ALPHA;
        if (!alpha) {
            uint8_t address[4];
            if (size >= 7 && size <= 15 && parseIPv4(text, size, address))
                return map.replaceIPv4(address, out) && count(OBF_IPV4);
            // Addresses joined into one token: a range ("10.0.0.1-10.0.0.9"), a file name's parts.
            if (memchr(text, '.', size) == nullptr) return false;
            for (char joint : {'-', '_'})
                if (memchr(text, joint, size) != nullptr)
                    return rewriteParts(text, size, joint, out, &TokenRewriter::rewritePiece);
            return false;
        }
        return rewriteName(text, size, out);
    }

    bool rewriteName(const char* text, size_t size, std::string& out) {
        if (size > 253) return false;  // longer than any DNS name
        if (memchr(text, '.', size) == nullptr) return rewriteWord(text, size, out);
        // No DNS name holds an underscore: it joins names ("gatr_db01.corp.example.com_2026").
        // A part may be an address as well as a name ("replica_10.0.0.7_5432.log").
        if (memchr(text, '_', size) != nullptr) return rewriteParts(text, size, '_', out, &TokenRewriter::rewritePiece);
        std::string lower(text, size);
        for (char& c : lower) c = lowerChar(c);
        for (size_t suffix = 0; suffix < size;) {
            if (map.isKnownDomain(lower.data() + suffix, size - suffix)) {
                if (suffix == 0) {
                    out = map.replaceDomain(lower);
                    return count(OBF_DOMAINS);
                }
                size_t dot = lower.find('.');
                if (dot == 0) break;
                out = map.replaceHost(lower.substr(0, dot));
                out += '.';
                out += map.replaceDomain(lower.substr(dot + 1));
                count(OBF_HOSTS);
                return count(OBF_DOMAINS);
            }
            size_t dot = lower.find('.', suffix);
            if (dot == std::string::npos) break;
            suffix = dot + 1;
        }
        // A name with more after it ("db01.corp.example.com.log", a file named after the host):
        // its longest leading name in a known domain is replaced, the rest kept.
        size_t dot = lower.find('.');
        for (size_t end = lower.rfind('.'); dot != std::string::npos && dot > 0 && end > dot;
             end = lower.rfind('.', end - 1)) {
            if (map.isKnownDomain(lower.data() + dot + 1, end - dot - 1)) {
                out = map.replaceHost(lower.substr(0, dot)) + '.' + map.replaceDomain(lower.substr(dot + 1, end - dot - 1));
                out.append(text + end, size - end);
                count(OBF_HOSTS);
                return count(OBF_DOMAINS);
            }
        }
        // netstat cuts a long name to fit its column ("db01.corp.example:5432"): a known host,
        // or any host before a whole label of it, followed by the start of a known domain is a
        // name in that domain.
        if (dot != std::string::npos && dot > 0 && dot + 1 < size &&
            (lower.find('.', dot + 1) != std::string::npos ||
             (map.mayBeWord(lower.data(), dot) && map.isShortHost(lower.substr(0, dot))))) {
            if (const std::string* domain = map.domainCutTo(lower.data() + dot + 1, size - dot - 1)) {
                out = map.replaceHost(lower.substr(0, dot)) + '.' + map.replaceDomain(*domain);
                count(OBF_HOSTS);
                return count(OBF_DOMAINS);
            }
        }
        if (map.hasDottedWords() && rewriteDottedWord(text, size, out)) return true;
        // A host name inside a longer dotted name is another name ("db01.other.org"); a user's
        // or a customer's name is still theirs there ("alice.txt", "acme.com").
        return rewriteParts(text, size, '.', out, &TokenRewriter::rewriteLabel);
    }

    /// A user's or customer's name that holds dots itself ("john.smith"), as the whole token or
    /// its first labels ("john.smith.log"): label by label it would never be recognised.
    bool rewriteDottedWord(const char* text, size_t size, std::string& out) {
        const char* firstDot = static_cast<const char*>(memchr(text, '.', size));
        for (size_t end = size; firstDot != nullptr && text + end > firstDot;) {
            if (rewriteNamedWord(text, end, out)) {
                out.append(text + end, size - end);
                return true;
            }
            do --end; while (text + end > firstDot && text[end] != '.');
        }
        return false;
    }

    bool rewriteLabel(const char* text, size_t size, std::string& out) {
        if (rewriteNamedWord(text, size, out)) return true;
        return memchr(text, '-', size) != nullptr &&
               rewriteParts(text, size, '-', out, &TokenRewriter::rewriteNamedWord);
    }

    bool rewriteWord(const char* text, size_t size, std::string& out) {
        if (size == 0) return false;
        char start[2] = {lowerChar(text[0]), size > 1 ? lowerChar(text[1]) : '\0'};
        if (map.mayBeWord(start, size)) {
            std::string lower(text, size);
            for (char& c : lower) c = lowerChar(c);
            int kind = 0;
            if (const std::string* replacement = map.replaceWord(lower, kind)) {
                out = *replacement;
                return count(kind);
            }
        }
        // Host names hold no underscore, so one joins words ("gatr_db01_2026..."); a hyphen
        // joins a host name's own parts ("db01-old" is another host) but not a user's or a
        // customer's name to the word beside it ("ACME-site").
        if (memchr(text, '_', size) != nullptr) return rewriteParts(text, size, '_', out, &TokenRewriter::rewriteWord);
        if (memchr(text, '-', size) != nullptr) return rewriteParts(text, size, '-', out, &TokenRewriter::rewriteNamedWord);
        return false;
    }

    /// A whole user name or keyword, not a host name.
    bool rewriteNamedWord(const char* text, size_t size, std::string& out) {
        if (size == 0) return false;
        char start[2] = {lowerChar(text[0]), size > 1 ? lowerChar(text[1]) : '\0'};
        if (!map.mayBeWord(start, size)) return false;
        std::string lower(text, size);
        for (char& c : lower) c = lowerChar(c);
        int kind = 0;
        const std::string* replacement = map.replaceWord(lower, kind, false);
        if (replacement == nullptr) return false;
        out = *replacement;
        return count(kind);
    }

    ObfuscationMap& map;
    ObfuscationCounts& replaced;
};

}  // namespace

size_t ObfuscationFilter::scan(const char* data, size_t size, bool last, std::string& out) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    TokenRewriter rewriter(map, replaced);
    size_t i = 0;
    if (skipping) {
        while (i < size && CLASSES.of[bytes[i]] != 0) ++i;
        out.append(data, i);
        if (i == size) return size;
        skipping = false;
    }
    size_t copied = i;
    while (true) {
        while (i < size && CLASSES.of[bytes[i]] == 0) ++i;
        if (i == size) break;
        size_t start = i;
        unsigned flags = 0;
        while (i < size && CLASSES.of[bytes[i]] != 0) flags |= CLASSES.of[bytes[i++]];
        bool overlong = i - start > OBFUSCATION_TOKEN_LIMIT;
        if (i == size && !last) {  // the token may go on in the next chunk
            if (!overlong) {
                out.append(data + copied, start - copied);
                return start;
            }
            skipping = true;
            break;
        }
        if (overlong) continue;
        scratch.clear();
        if (rewriter.rewrite(data + start, i - start, flags, scratch)) {
            out.append(data + copied, start - copied);
            out += scratch;
            copied = i;
        }
    }
    out.append(data + copied, size - copied);
    return size;
}

void ObfuscationFilter::feed(const char* data, size_t size, std::string& out) {
    if (held.empty()) {
        size_t used = scan(data, size, false, out);
        held.assign(data + used, size - used);
        return;
    }
    held.append(data, size);
    size_t used = scan(held.data(), held.size(), false, out);
    held.erase(0, used);
}

void ObfuscationFilter::finish(std::string& out) {
    scan(held.data(), held.size(), true, out);
    held.clear();
    skipping = false;
}

std::string obfuscateName(ObfuscationMap& map, const std::string& name, ObfuscationCounts* counts) {
    ObfuscationFilter filter(map);
    std::string out;
    filter.feed(name.data(), name.size(), out);
    filter.finish(out);
    if (counts != nullptr) counts->add(filter.counts());
    return out;
}

}  // namespace privacy
