// A line is written once, with its masked ranges replaced, instead of being edited in place:
// no shifting of offsets, and an unmasked line is copied in one piece.
#include <algorithm>
#include <cstring>

#include "privacy/scanner.h"

namespace privacy {

bool LineEdits::add(const char* line, size_t begin, size_t end, int rule) {
    if (end <= begin) return false;
    if (end - begin == 8 && memcmp(line + begin, MASKED_VALUE, 8) == 0) return false;
    // Ranges come left to right nearly always: only one that starts before the end of another
    // needs the check against all.
    if (begin < furthest) {
        for (const Edit& edit : edits) {
            if (begin < edit.end && edit.begin < end) return false;
        }
    }
    edits.push_back({begin, end, rule});
    if (end > furthest) furthest = end;
    return true;
}

void LineEdits::write(const char* line, size_t size, std::string& out, MaskCounts& counts) {
    std::sort(edits.begin(), edits.end(),
              [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    size_t at = 0;
    for (const Edit& edit : edits) {
        out.append(line + at, edit.begin - at);
        out.append(MASKED_VALUE);
        at = edit.end;
        if (edit.rule != UNCOUNTED) ++counts.byRule[edit.rule];
    }
    out.append(line + at, size - at);
}

}  // namespace privacy
