// Points work::errorsOs at a memory buffer for the length of a test and hands back the
// messages logged, without time stamps.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "work.h"

class ErrorLogCapture {
public:
    ErrorLogCapture() { work::errorsOs = open_memstream(&data, &size); }
    ~ErrorLogCapture() {
        if (work::errorsOs != nullptr) fclose(work::errorsOs);
        work::errorsOs = nullptr;
        free(data);
    }
    ErrorLogCapture(const ErrorLogCapture&) = delete;
    ErrorLogCapture& operator=(const ErrorLogCapture&) = delete;

    std::string text() {
        fflush(work::errorsOs);
        return std::string(data, size);
    }
    // The message of each line: what follows the 20-character status word. The layout is
    // "<19 stamp> <16 source> [<5 line>] <20 status> <message>".
    std::vector<std::string> messages() {
        std::vector<std::string> result;
        std::istringstream lines(text());
        for (std::string line; std::getline(lines, line);) {
            if (line.size() > 66) result.push_back(line.substr(66));
        }
        return result;
    }
    // The status word of each line, without padding.
    std::vector<std::string> statuses() {
        std::vector<std::string> result;
        std::istringstream lines(text());
        for (std::string line; std::getline(lines, line);) {
            if (line.size() <= 66) continue;
            std::string word = line.substr(45, 20);
            word.erase(word.find_last_not_of(' ') + 1);
            result.push_back(word);
        }
        return result;
    }

private:
    char* data = nullptr;
    size_t size = 0;
};
