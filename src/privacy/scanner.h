// The line scanner's parts, shared by the files that hold them: what one line asks to mask, and
// what it opens for the lines after it. Internal to privacy/.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "privacy/masking.h"

namespace privacy {

/// Not counted: a further line of a value counted once where it began.
constexpr int UNCOUNTED = -1;

/// The ranges of one line to mask, never overlapping.
class LineEdits {
public:
    /// Adds line[begin, end) under `rule` unless it is empty, masked already or overlaps one
    /// added before; whether it was added.
    bool add(const char* line, size_t begin, size_t end, int rule);
    void clear() {
        edits.clear();
        furthest = 0;
    }
    bool empty() const { return edits.empty(); }
    /// Where the range that ends last ends (0 when there is none).
    size_t furthestEnd() const { return furthest; }
    /// Appends line[0, size) with every range replaced by the mask, and counts the ranges.
    void write(const char* line, size_t size, std::string& out, MaskCounts& counts);

private:
    struct Edit {
        size_t begin, end;
        int rule;
    };
    std::vector<Edit> edits;
    size_t furthest = 0;  // the end of the range that ends last
};

/// What a line leaves open for the lines after it.
enum FollowKind {
    FOLLOW_NONE,
    FOLLOW_NEXT_VALUE,    // "password:" with the value on the next line(s), or a list under it
    FOLLOW_LIST,          // the items of a list under a secret name
    FOLLOW_BLOCK_SCALAR,  // "password: |" and the more indented lines under it
    FOLLOW_BACKSLASH,     // a value ending in '\' goes on
    FOLLOW_INDENTED,      // a value may go on in more indented lines (INI, YAML plain scalars)
    FOLLOW_JSON,          // an array or object under a secret name, not closed yet
    FOLLOW_NETRC,         // "password" ended the line: its value starts the next
    FOLLOW_KEY_BLOCK,     // a key block's BEGIN line
    FOLLOW_ELEMENT,       // <password> or a VPN inline key, closed on a later line
};

struct Follow {
    FollowKind kind = FOLLOW_NONE;
    size_t indent = 0;  // of the key that opened it
    int rule = MASK_NAMED_VALUE;
    int depth = 0;      // of FOLLOW_JSON
    bool counted = false;  // whether the value was counted on an earlier line
    std::string element;
};

/// What the lines before say about this one.
struct LineFacts {
    bool lineStart = true;   // false for the later pieces of an overlong line
    bool netrc = false;      // the member is a .netrc: "password" is followed by its value
    bool secretData = false; // under data: or stringData: of a Kubernetes Secret
};

/// Adds to `edits` what line[from, size) holds to mask (size excludes the line end) and says in
/// `follow` what it opens. A value over several lines is counted where its first part is masked.
void scanLine(const char* line, size_t size, size_t from, const LineFacts& facts, LineEdits& edits,
              Follow& follow);

/// Masks the string values of JSON from `at`, where the nesting is `depth` deep, to where it
/// closes (returned, past the closing bracket) or to the end of the line (depth then says how
/// deep it still is).
size_t maskJsonValues(const char* line, size_t size, size_t at, int& depth, int rule, LineEdits& edits);

/// The value of an Authorization header from `at` (after the colon), up to `stop`: the scheme
/// word stays. Returns where the value ends.
size_t maskAuthorization(const char* line, size_t at, size_t stop, LineEdits& edits);
/// The values of a Cookie header (all of them) or a Set-Cookie header (the first).
size_t maskCookies(const char* line, size_t at, size_t stop, bool first, LineEdits& edits);

/// Which programs a line names, looked up once a line and only when an option asks.
struct Programs {
    int gluedPassword = -1;  // mysql, mariadb or sshpass, which take -pX; -1 not looked up yet
    int curl = -1;
};

/// A command-line option at line[at] ('-'): --password x, -pX for mysql and sshpass, curl's
/// -u user:password. Returns where scanning goes on.
size_t maskOption(const char* line, size_t size, size_t at, Programs& programs, LineEdits& edits);

/// The leading blanks of a line.
inline size_t indentOf(const char* line, size_t size) {
    size_t at = 0;
    while (at < size && (line[at] == ' ' || line[at] == '\t')) ++at;
    return at;
}

}  // namespace privacy
