// Reads back error-log text captured in memory (test_support::CapturedErrorLog): the message and
// the status word of each line, without time stamps.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace test_support {

// A line is "<19 stamp> <16 source> [<5 line>] <20 status> <message>".
constexpr size_t STATUS_COLUMN = 45;
constexpr size_t MESSAGE_COLUMN = 66;

inline std::vector<std::string> errorMessages(const std::string& log) {
    std::vector<std::string> result;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > MESSAGE_COLUMN) result.push_back(line.substr(MESSAGE_COLUMN));
    }
    return result;
}

inline std::vector<std::string> errorStatuses(const std::string& log) {
    std::vector<std::string> result;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() <= MESSAGE_COLUMN) continue;
        std::string word = line.substr(STATUS_COLUMN, 20);
        word.erase(word.find_last_not_of(' ') + 1);
        result.push_back(word);
    }
    return result;
}

}  // namespace test_support
