// The state a member's lines carry from one to the next: an open key block, a value that goes on
// over lines, a Kubernetes document whose kind is not known yet. Internal to privacy/.
#pragma once

#include <cstddef>
#include <string>

#include "privacy/masking.h"
#include "privacy/scanner.h"

namespace privacy {

/// A Kubernetes document's data: is held back until its kind says whether it is a Secret, up to
/// this many bytes; a longer one is masked as if it were.
constexpr size_t LONGEST_HELD_DATA = 256 * 1024;

struct LineMasker {
    /// Masks one line (with its '\n') or one piece of an overlong line (without), appending the
    /// result to `out`.
    void maskLine(const char* line, size_t size, std::string& out, MaskCounts& counts);
    /// The member ended: what is held back is written.
    void finish(std::string& out, MaskCounts& counts);

private:
    enum Kind { KIND_UNKNOWN, KIND_SECRET, KIND_OTHER };
    /// Lines that belong to what an earlier line opened; whether the line was dealt with.
    /// `from` is set to where the ordinary scan takes over on a line handled in part.
    bool continueOpen(const char* line, size_t length, size_t& from);
    bool continueKeyBlock(const char* line, size_t length);
    bool continueIndented(const char* line, size_t length);
    /// Follows the documents of a YAML stream; whether the line (or piece) was held back.
    bool trackDocument(const char* line, size_t size, size_t length, bool lineStart, std::string& out,
                       MaskCounts& counts);
    void releaseHeld(Kind kind, std::string& out, MaskCounts& counts);
    /// A key block opens; its body is counted under `rule` (UNCOUNTED when what holds it was).
    void openKeyBlock(int rule);
    /// The rule for the first masked part of the open value: counted once, then UNCOUNTED.
    int countOnce();

    LineEdits edits;
    Follow open;
    bool inKeyBlock = false;
    bool keyBodyWritten = false;
    int keyRule = MASK_PRIVATE_KEY;
    bool dropLine = false;
    bool midLine = false;
    bool valueRunsOn = false;  // the last piece of an overlong line ended inside a masked value
    bool netrc = false;
    Kind kind = KIND_UNKNOWN;
    bool secretData = false;
    bool holding = false;
    std::string held;
};

}  // namespace privacy
