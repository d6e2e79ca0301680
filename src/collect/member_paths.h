// Which names may go into the archive, decided on the name as the kernel would walk it.
#pragma once

#include <string>

/// The path with repeated slashes, "." and ".." resolved by name alone ("/a/../b" is "/b"; ".."
/// above the root stays at the root), without a trailing slash; relative paths stay relative.
std::string normalisePath(const std::string& path);

/// Why a normalised path is never packed, or null when it may be. folder says whether it names
/// a folder: the root, and /proc, /sys, /dev, /run or any folder below them, are whole systems
/// of their own; a process's environment or memory under /proc is never packed either.
const char* refusalReason(const std::string& path, bool folder);
