// Masking as the rest of the program asks for it: the privacy filters, switched off as a whole
// when the configuration asks for raw output ("mask_secrets": false).
#pragma once

#include <cstddef>
#include <string>

#include "privacy/masking.h"

using privacy::MASKED_VALUE;

/// Masks a line of command output or environment in place; returns how many values were
/// masked. Nothing when masking is off.
size_t maskLine(std::string& line);
/// Masks a whole configuration file's text in place; returns how many values were masked.
size_t maskConfiguration(std::string& text);
/// maskLine over a NUL-terminated buffer of size bytes; a longer result is cut to fit.
size_t maskLineInPlace(char* line, size_t size);
