// Helpers for the JSON library's unit tests: an error log in memory and one-call writers.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "jsonparser.h"
#include "work.h"

namespace jsontest {

// Points the error log at a memory buffer while it lives.
class ErrorLog {
public:
    ErrorLog() { work::errorsOs = open_memstream(&data, &size); }
    ~ErrorLog() {
        std::fclose(work::errorsOs);
        work::errorsOs = nullptr;
        std::free(data);
    }
    ErrorLog(const ErrorLog&) = delete;
    ErrorLog& operator=(const ErrorLog&) = delete;

    std::string text() {
        std::fflush(work::errorsOs);
        return std::string(data, size);
    }
    /// The messages of the logged lines, after the fixed-width columns (66 characters).
    std::vector<std::string> messages() {
        std::vector<std::string> result;
        std::string all = text();
        size_t start = 0;
        while (start < all.size()) {
            size_t end = all.find('\n', start);
            if (end == std::string::npos) end = all.size();
            if (end - start >= 66) result.push_back(all.substr(start + 66, end - start - 66));
            start = end + 1;
        }
        return result;
    }
    /// The source column of the first line, trimmed.
    std::string firstSource() {
        std::string all = text();
        if (all.size() < 36) return "";
        std::string source = all.substr(20, 16);
        return source.substr(0, source.find_last_not_of(' ') + 1);
    }

private:
    char* data = nullptr;
    size_t size = 0;
};

// A temporary file holding `content`, removed when it goes.
class TempFile {
public:
    explicit TempFile(const std::string& content) {
        char name[] = "/tmp/gatr_json_XXXXXX";
        int fd = mkstemp(name);
        path = name;
        if (fd >= 0) {
            if (write(fd, content.data(), content.size()) < 0) path.clear();
            close(fd);
        }
    }
    ~TempFile() { unlink(path.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    std::string path;
};

/// The document written in the given layout, through a memory stream.
inline std::string written(JsonDocument& doc, json_format_t format = JSON_FORMAT_COMPACT) {
    char* data = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&data, &size);
    doc.writeDocument(format, stream);
    std::fclose(stream);
    std::string text(data, size);
    std::free(data);
    return text;
}

/// Loads text; the result of loadDocument.
inline int load(JsonDocument& doc, const std::string& text) {
    return doc.loadDocument(text.c_str(), text.size());
}

/// The message of the out-of-range error the string class raises for at(0) on "".
inline std::string emptyAtMessage() {
    try {
        (void)std::string().at(0);
    } catch (const std::out_of_range& e) {
        return e.what();
    }
    return "";
}

}  // namespace jsontest
