// The upload mode and its helpers.
#pragma once

#include <cstddef>

/// The upload mode: sends an archive to the region's support server and updates the case;
/// returns after success, exits 1 on any failure.
void uploadToFtp();

/// Appends region to the list of size bytes as the index-th of count names: the first as it
/// is, middle ones after ", ", the last (of two or more) after " or "; cut at size - 1 bytes.
/// Returns list.
char* appendRegionName(char* list, size_t size, const char* region, int index, int count);
/// True when caseNumber is exactly eight decimal digits.
bool isValidCaseNumber(const char* caseNumber);
