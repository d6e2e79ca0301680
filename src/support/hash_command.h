// The hash mode: prints the digest of one file, or of the files of one folder whose names match
// a simple wildcard pattern, in the two-blank layout of the common checksum tools.
#pragma once

#include <cstddef>

#include "common/crypto.h"

// The longest text part of a wildcard pattern; longer parts are cut to this length.
constexpr size_t HASH_PATTERN_PART_MAX = 255;

enum hash_pattern_kind_t : int {
    PATTERN_ALL = 0,            // "*"
    PATTERN_PREFIX = 1,         // "text*"
    PATTERN_SUFFIX = 2,         // "*text"
    PATTERN_INFIX = 3,          // "*text*"
    PATTERN_PREFIX_SUFFIX = 4   // "text*text", split at the first "*"
};

struct HashPattern {
    hash_pattern_kind_t kind = PATTERN_ALL;
    char first[HASH_PATTERN_PART_MAX + 1] = {};   // prefix, suffix or infix text
    char second[HASH_PATTERN_PART_MAX + 1] = {};  // the suffix of PATTERN_PREFIX_SUFFIX
};

/// Classifies a pattern that holds at least one "*"; returns its kind and text parts, each cut
/// to HASH_PATTERN_PART_MAX characters. Logs nothing.
HashPattern classifyHashPattern(const char* pattern);
/// True when the folder entry name matches the pattern (case-sensitive, byte-wise).
bool matchesHashPattern(const HashPattern& pattern, const char* name);

/// Runs the hash mode on work::hashPathname: a file, a folder ending in "/" (every entry), or
/// "folder/pattern" over one folder level in directory order. Returns normally, or prints
/// "gatr: file does not exist" to standard error and exits 1 when a plain path is missing.
void hashPathname(crypto_type_t type);
/// Prints "<hash>  <path>" on standard output and flushes it, a backslash or line feed in the
/// path escaped as the common checksum tools do; prints nothing when the file cannot be hashed
/// or is a FIFO, socket or device, never opened (the reason is in the error log). An unknown
/// type is logged as FATAL, printed to standard error and ends the process with status 1.
void hashFile(crypto_type_t type, const char* path);
