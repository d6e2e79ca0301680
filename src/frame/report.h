// Shapes shared by every section of the main log: the section frame, labelled lines, the
// "failed to retrieve data" line, and reading a command's output line by line.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>

#include "frame/file.h"

/// Logs "<title> section commenced" and writes the rule (unless withRule is false: the first
/// section follows the log header's own rule) and "<title>\n\n" to the main log.
/// The title is translated by the caller. The main log is flushed.
void beginSection(const char* title, bool withRule = true);
/// Logs "<title> section completed" and flushes the main log.
void endSection(const char* title);

/// Writes printf-style text to the main log; nothing when the main log is not open.
void writeLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// Writes "%-20s  %s\n" to the main log.
void writeLabelled(const char* label, const char* value);
/// Writes "  %-18s  %s\n" to the main log.
void writeFact(const char* label, const char* value);
/// Writes "failed to retrieve data - refer to the gatr_errors.log for details\n\n" indented by
/// `indent` blanks: two under a probe's heading, four in the backup product's reports.
void writeRetrievalFailure(int indent = 2);

/// Logs "popen to <word> failed: <strerror(errno)>\n" at status ERROR under `source`.
void logPopenFailure(const char* source, unsigned line, const char* word);
/// Logs "fopen on <path> failed: <strerror(errno)>\n" at status ERROR under `source`.
void logFopenFailure(const char* source, unsigned line, const char* path);

/// Reads a command's output in lines of lineSize bytes (1024, or 2048 for package tools) and
/// hands each to onLine (with its newline). A last line that arrives together with end of file
/// is dropped: a half-written line would read as a finished one.
void readCommandLines(FILE* pipe, size_t lineSize, const std::function<void(const char*)>& onLine);

