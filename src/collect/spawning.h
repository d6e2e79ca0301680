// Running external programs through the shell, one at a time.
#pragma once

#include <cstddef>
#include <list>
#include <string>

#include "common/child_process.h"

/// Runs command and writes its standard output to path opened with mode; 0 when the command
/// ran and exited 0, otherwise -1 (logged with the raw wait status).
int spawnProgram(const char* command, const char* path, const char* mode);
/// Runs command and replaces lines by its output lines; 0 or -1 as above.
int spawnProgram(const char* command, std::list<std::string>& lines);
