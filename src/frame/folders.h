// The output folder and the small file-system helpers the other modules share.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

/// Prepares the output folder, locked for this run (see run_lock.h), its emptied logs folder
/// and work::settings; 0, or -1 (said on standard error) on failure or when another run holds
/// the folder.
int createOutputFolder();
/// Creates the folder and its missing parents with mode 0775; 0, or -1 (logged).
int makeDirectory(const char* path);
/// Removes the folder's entries (no recursion) and, if removeSelf, the folder; 0 or -1.
int removeDirectory(const char* path, bool removeSelf);
/// Replaces entries by the folder's entry names in system order, without "." and "..";
/// logs "Invalid Handle for file <path>" when the folder cannot be opened.
void getDirectoryList(const char* path, std::vector<std::string>& entries);
/// Flushes, syncs to disk and closes file, which was written as path; false, logged as
/// "fwrite on file <path> failed: <reason>", when any step failed. The file is closed either way.
bool closeSynced(FILE* file, const char* path);
/// Syncs the folder that holds path, so that a rename into it survives a crash; false, logged
/// as "fsync on <folder> failed: <reason>", when it could not be.
bool syncFolderOf(const char* path);
/// The path with repeated slashes, "." and ".." resolved by name alone ("/a/../b" is "/b"; ".."
/// above the root stays at the root), without a trailing slash; relative paths stay relative.
std::string normalisePath(const std::string& path);
