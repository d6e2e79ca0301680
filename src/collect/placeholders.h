// The placeholders of manifest entries: %HOME%, %INSTALL% and any environment variable.
#pragma once

#include <cstddef>

/// Expands %HOME% (the invoking sudo user's home, else $HOME), %INSTALL% (installPath) and
/// %<environment name>% placeholders in place, cut at size - 1 bytes; an unset name gives
/// "(null)". Logs nothing.
void sanitiseFileName(char* text, size_t size, const char* installPath);
