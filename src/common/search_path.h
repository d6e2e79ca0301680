// Finding a program the way the shell would, before choosing to run it.
#pragma once

#include <cstddef>

/// Whether an executable regular file of that name lies in a folder of $PATH (an empty entry
/// being the working directory). False when PATH is unset.
bool isOnSearchPath(const char* name);

/// Like isOnSearchPath, and writes the program's path into found (size bytes) when it is there.
bool findOnSearchPath(const char* name, char* found, size_t size);
