// Which names may go into the archive, decided on the name as the kernel would walk it.
#pragma once

#include <string>

#include "frame/folders.h"  // normalisePath


/// Why a normalised path is never packed, or null when it may be. folder says whether it names
/// a folder: the root, and /proc, /sys, /dev, /run or any folder below them, are whole systems
/// of their own; a process's environment or memory under /proc is never packed either.
const char* refusalReason(const std::string& path, bool folder);
