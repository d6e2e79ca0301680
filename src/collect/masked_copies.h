// Configuration files go into the archive with their secret values masked, under their own names.
#pragma once

#include <list>
#include <string>
#include <vector>

/// For each configuration-like regular file among entries (by ending, or under /etc) that holds
/// secret values, writes a masked copy into folder (made 0700), puts the copy's path in the
/// entry's place and adds a tar --transform expression that names the copy as the original.
/// Logs, per file, how many values were masked. Log files and binary files are left as they are.
void maskConfigurationFiles(std::list<std::string>& entries, const char* folder,
                            std::vector<std::string>& transforms);

/// Masks, line by line as command output is masked, a file that programs wrote straight to disk
/// (their standard error); rewrites it only when something was masked.
void maskCommandOutputFile(const char* path);
