// JSON string text, written the one way gatr's own JSON files (the run record, the obfuscation
// mapping) write it.
#pragma once

#include <string>

namespace privacy {

/// Appends text to out as a JSON string: quoted, with quotes, backslashes and control
/// characters escaped; other bytes as they are.
void appendJsonQuoted(std::string& out, const std::string& text);

}  // namespace privacy
