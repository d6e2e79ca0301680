// Obfuscation around the archive writer: the run's mapping, kept private in the output folder
// between runs, and the record beside each archive of what it replaced.
#pragma once

#include <string>

#include "privacy/obfuscation.h"

/// The mapping file in the output folder, and the suffix of an archive's own record.
constexpr const char* OBFUSCATION_MAP_FILE = ".obfuscation.json";
constexpr const char* ARCHIVE_MAP_SUFFIX = ".map.json";

/// When OPT_OBFUSCATE is set: the run's mapping, loaded from the output folder's
/// .obfuscation.json (a damaged one, one that is a link root does not own, or one another user
/// owns is renamed to .obfuscation.json.bad, with a warning in the error log, and a new mapping
/// begins) and configured with the machine's facts. Null when obfuscation is off. Call once,
/// after the output folder is set up; later calls return the same mapping.
privacy::ObfuscationMap* prepareObfuscation();
/// The mapping prepareObfuscation() made, or null.
privacy::ObfuscationMap* obfuscationMap();
/// Saves the mapping to .obfuscation.json and writes <archivePath>.map.json with only what this
/// archive replaced, both 0600 and replaced whole by rename; logs the counts of values replaced
/// by kind. 0, 1 when obfuscation is off (nothing written), -1 (logged) when a file could not
/// be written.
int finishObfuscation(const char* archivePath);
/// "obfuscation on: values replaced: hosts <n>, domains <n>, ipv4 <n>, ipv6 <n>, mac <n>,
/// users <n>, keywords <n>" (distinct values replaced so far), or "" when obfuscation is off.
/// finishObfuscation() logs it; a writer that packs the main log last may end it with this line.
std::string obfuscationSummary();
