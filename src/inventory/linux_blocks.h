// Shapes shared by the inventory sections: the source name their error-log lines carry and
// the block that copies a command's output, indented, into the main log.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>

// The inventory sections report under one module name, whichever file holds the code.
constexpr const char* LINUX_SOURCE = "src/linux.cpp";

enum class LineFilter {
    // Every line is copied.
    None,
    // A line holding "error" or "ERROR" goes to the error log (status ERROR) instead.
    Errors,
    // As Errors; of the rest only empty lines and lines that begin with "Repo-" are copied.
    Repositories
};

/// True when the line holds "error" or "ERROR".
bool isErrorLine(const char* line);

/// When program is not on $PATH, writes heading (if not null) with "%s\n", then "  <program>:
/// not installed" and one empty line, and returns true; otherwise writes nothing and returns false.
bool writeIfNotInstalled(const char* heading, const char* program);

/// Runs command and, once it has started, writes heading (if not null) with "%s\n", copies
/// every line read (lineSize bytes each, a last unterminated line dropped) as "  %s" through
/// filter, and ends the block with one empty line. Returns false, having logged
/// "popen to <word> failed" and written nothing, when the command could not be started.
bool copyCommandBlock(const char* heading, const char* command, const char* word,
                      LineFilter filter, size_t lineSize = 1024);

/// Creates the file at path, writes its heading through writeHeading, then every complete
/// output line of command unchanged (lineSize bytes each). Returns true when the file is
/// complete; false, having logged "fopen on <path> failed" or "popen to <word> failed", when
/// the file could not be created or the command could not be started (the file then holds
/// only its heading).
bool copyCommandToFile(const char* path, const std::function<void(FILE*)>& writeHeading,
                       const char* command, const char* word, size_t lineSize);
