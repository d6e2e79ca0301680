// Running external programs through the shell, one at a time.
#pragma once

#include <cstddef>
#include <list>
#include <string>

/// Runs command and writes its standard output to path opened with mode; 0 when the command
/// ran and exited 0, otherwise -1 (logged with the raw wait status).
int spawnProgram(const char* command, const char* path, const char* mode);
/// Runs command and replaces lines by its output lines; 0 or -1 as above.
int spawnProgram(const char* command, std::list<std::string>& lines);
/// Stores the command's program (the quoted text, or the text before the first blank) in
/// buffer and returns its base name inside buffer. Throws std::runtime_error for an unclosed
/// quote or a command without a blank; the spawners let that reach their caller.
char* getSpawnedProgram(const char* command, char* buffer, size_t size);
