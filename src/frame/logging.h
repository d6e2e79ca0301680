// The error log (gatr_errors.log, written only through logError) and the main log (gatr.log).
#pragma once

#include <cstdarg>

enum status_t : int {
    STATUS_INFORMATION = 0,
    STATUS_WARNING = 1,
    STATUS_ERROR = 2,
    STATUS_FATAL = 3,
    STATUS_DEBUG = 4
};

/// Appends one line to the error log; before it is open, prints "gatr: <message>" to standard
/// error instead (cut to two paths' length). Never exits.
void logError(const char* file, unsigned line, status_t status, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Formats into a newly malloc'ed string the caller frees; null when formatting fails.
char* getVariableMsg(const char* format, va_list args);

/// Opens the error log afresh ("w") or for appending (resume); exits 1 when it cannot.
void enableErrorLogging(bool resume, int argc, char** argv);
/// Closes the error log with "logging suspended" or "logging disabled".
void disableErrorLogging(bool suspend);
/// Creates the main log and writes its header; exits 1 when it cannot.
void enableLogging();
/// Writes the main log's footer and closes it.
void disableLogging();

// The two separator lines of the main log (80 characters each).
extern const char* const EQUALS_RULE;
extern const char* const DASH_RULE;
