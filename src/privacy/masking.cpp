// The filter's stream handling: lines are cut from the input where it lies, without a copy,
// and only the unfinished last line of a chunk is held until the next one.
#include "privacy/masking.h"

#include <cstring>

#include "privacy/line_masker.h"

namespace privacy {

namespace {

// A line longer than this is masked in pieces: one endless line must not hold the whole member
// in memory.
constexpr size_t LONGEST_LINE = 1 << 20;

/// Where to cut a piece of an overlong line that starts at text: after the last blank of its
/// second half, so that a value is rarely cut in two, or at the bound.
size_t pieceLength(const char* text) {
    for (size_t at = LONGEST_LINE; at > LONGEST_LINE / 2; --at) {
        if (text[at - 1] == ' ' || text[at - 1] == '\t') return at;
    }
    return LONGEST_LINE;
}

}  // namespace

const char* maskRuleName(int rule) {
    static const char* const NAMES[MASK_RULE_COUNT] = {
        "named-value", "url-password", "private-key", "http-auth",    "cookie",        "jwt",
        "token-form",  "crypt-hash",   "command-line", "netrc",       "k8s-secret",    "registry-auth"};
    return rule >= 0 && rule < MASK_RULE_COUNT ? NAMES[rule] : "unknown";
}

unsigned long long MaskCounts::total() const {
    unsigned long long sum = 0;
    for (unsigned long long count : byRule) sum += count;
    return sum;
}

void MaskCounts::add(const MaskCounts& other) {
    for (int rule = 0; rule < MASK_RULE_COUNT; ++rule) byRule[rule] += other.byRule[rule];
}

MaskingFilter::MaskingFilter() : lines(new LineMasker) {}
MaskingFilter::~MaskingFilter() = default;
MaskingFilter::MaskingFilter(const MaskingFilter& other)
    : held(other.held), masked(other.masked), lines(new LineMasker(*other.lines)) {}
MaskingFilter& MaskingFilter::operator=(const MaskingFilter& other) {
    if (this != &other) {
        held = other.held;
        masked = other.masked;
        lines.reset(new LineMasker(*other.lines));
    }
    return *this;
}
MaskingFilter::MaskingFilter(MaskingFilter&& other) noexcept = default;
MaskingFilter& MaskingFilter::operator=(MaskingFilter&& other) noexcept = default;

size_t MaskingFilter::maskLines(const char* data, size_t size, bool all, std::string& out) {
    size_t begin = 0;
    while (begin < size) {
        size_t rest = size - begin;
        const void* newline = memchr(data + begin, '\n', rest < LONGEST_LINE ? rest : LONGEST_LINE);
        size_t length;
        if (newline != nullptr) {
            length = static_cast<size_t>(static_cast<const char*>(newline) - (data + begin)) + 1;
        } else if (rest >= LONGEST_LINE) {
            length = pieceLength(data + begin);
        } else if (all) {
            length = rest;
        } else {
            break;
        }
        lines->maskLine(data + begin, length, out, masked);
        begin += length;
    }
    return begin;
}

void MaskingFilter::feed(const char* data, size_t size, std::string& out) {
    // The held start of a line is completed from the new bytes first, in the window where a
    // whole input would have been searched for its end, so that the cuts never depend on the
    // chunks.
    while (!held.empty() && size > 0) {
        size_t room = LONGEST_LINE - held.size();
        const void* newline = memchr(data, '\n', size < room ? size : room);
        size_t take = newline != nullptr ? static_cast<size_t>(static_cast<const char*>(newline) - data) + 1
                                         : (size < room ? size : room);
        held.append(data, take);
        data += take;
        size -= take;
        if (newline == nullptr && held.size() < LONGEST_LINE) return;
        size_t used = maskLines(held.data(), held.size(), false, out);
        held.erase(0, used);
    }
    size_t used = maskLines(data, size, false, out);
    held.append(data + used, size - used);
}

void MaskingFilter::finish(std::string& out) {
    maskLines(held.data(), held.size(), true, out);
    held.clear();
    lines->finish(out, masked);
}

size_t maskText(std::string& text, MaskCounts* counts) {
    MaskingFilter filter;
    std::string out;
    out.reserve(text.size());
    filter.feed(text.data(), text.size(), out);
    filter.finish(out);
    text.swap(out);
    if (counts != nullptr) counts->add(filter.counts());
    return filter.counts().total();
}

bool looksBinary(const char* data, size_t size) {
    return memchr(data, '\0', size < 8192 ? size : 8192) != nullptr;
}

}  // namespace privacy
