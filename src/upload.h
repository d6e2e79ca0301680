// Helpers of the upload mode (uploadToFtp itself is declared in modes.h).
#pragma once

#include <cstddef>

/// Appends region to the list of size bytes as the index-th of count names: the first as it
/// is, middle ones after ", ", the last (of two or more) after " or "; cut at size - 1 bytes.
/// Returns list.
char* appendRegionName(char* list, size_t size, const char* region, int index, int count);
/// The archive's file name: the text after the last "/" of path, or the whole path.
const char* archiveBaseName(const char* path);
/// True when caseNumber is exactly eight decimal digits.
bool isValidCaseNumber(const char* caseNumber);
