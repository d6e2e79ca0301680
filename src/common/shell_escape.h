// Making untrusted text (paths from folder listings, the command line) safe inside a
// double-quoted word of a shell command.
#pragma once

#include <cstddef>

/// Copies text into buffer (at most size-1 bytes, always terminated) with a backslash before
/// each '"', '\\', '$' and '`', the only characters the shell still treats specially between
/// double quotes. An escape sequence is never cut in half: when the next character and its
/// backslash do not both fit, the copy stops there. Returns the length written.
size_t escapeForDoubleQuotes(const char* text, char* buffer, size_t size);
