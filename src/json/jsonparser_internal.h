// Pieces shared by the JSON library's source files only: the error report for caught
// exceptions, the whitespace sets and the depth limit of the parser.
#pragma once

#include <cstdio>
#include <exception>
#include <string>

namespace jsonparser {

// The name under which the JSON library reports to the error log.
constexpr const char* SOURCE = "src/jsonparser";

// Whitespace as the parser trims it, and the same set with the double quote for member names.
constexpr const char* WHITESPACE = " \t\f\v\n\r";
constexpr const char* WHITESPACE_AND_QUOTE = " \t\f\v\n\r\"";

/// Logs "exception caught: <what>" at status ERROR under SOURCE with the caller's line.
void reportException(unsigned line, const char* what);

/// Runs body and returns its result; an exception is reported with the caller's line and
/// turns into `failure`. This is the API boundary: nothing thrown inside the library passes it.
template <typename T, typename Body>
T guarded(unsigned line, T failure, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        reportException(line, e.what());
    } catch (...) {
        reportException(line, "unknown exception");
    }
    return failure;
}


/// The text between the first and last character outside `set` (empty when all are in it).
std::string trimmed(const std::string& text, const char* set);

}  // namespace jsonparser
