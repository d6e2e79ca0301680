// The run's time limits and its masking switch, read from the configuration file at start.
#pragma once

// Beside the program: see programFile().
constexpr const char* CONFIG_FILE_NAME = "etc/gatr_config.json";

/// Sets work::limits from "limits" in the configuration file; a missing key, or one that is not
/// a positive whole number, keeps its default. A file that is missing or does not load keeps
/// every default and, when warn is set, logs one warning. Sets work::maskSecrets from
/// "mask_secrets" (on unless it is false), sets OPT_OBFUSCATE when "obfuscate" is true and fills
/// work::obfuscation from the string lists of "obfuscation" ("domains", "users", "keywords").
void loadLimits(bool warn);

/// Reads "<days>" (a whole number of days before now, at least 1) or "YYYY-MM-DD" (local
/// midnight, not after now) into cutoff; false for anything else.
bool parseSince(const char* text, long long now, long long& cutoff);
/// Reads a whole number of mebibytes, 0 included, into bytes; false for anything else.
bool parseMebibytes(const char* text, unsigned long long& bytes);
