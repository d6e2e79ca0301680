// What goes into the archive: the listed names, every file below a listed folder, and the run's
// own files, each once.
#pragma once

#include <list>
#include <set>
#include <string>
#include <vector>

/// Adds the main log, the error log and every regular file in "<output>/logs" to entries:
/// whatever gatr wrote for the run is packed, whether or not its writer listed it.
void addRunFiles(std::list<std::string>& entries);

/// Masks, line by line as command output is masked, the file programs wrote their standard
/// error into; rewritten only when something was masked, so that not even the output folder
/// keeps a secret a program printed.
void maskChildErrorsFile(const char* path);

/// The members to pack, in packing order, and the bytes their regular files hold.
struct MemberList {
    std::vector<std::string> paths;
    std::vector<unsigned long long> sizes;  // of each path: a regular file's, else 0
    unsigned long long bytes = 0;
    std::set<std::string> seen;  // names already taken, or never to be packed
};

/// Appends the normalised path, then, for a folder, everything below it in byte order of names,
/// to members, skipping names already seen. A name that cannot be looked at or that
/// refusalReason refuses is left out with a warning in the error log ("<path>: not gathered:
/// <why>").
void addMemberTree(const std::string& path, MemberList& members);
