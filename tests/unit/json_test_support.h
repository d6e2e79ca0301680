// Helpers for the JSON library's unit tests: an error log in memory and one-call writers.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "json/jsonparser.h"
#include "test_support.h"

namespace jsontest {

// The shared in-memory error log, read as the messages it holds.
class ErrorLog : public test_support::CapturedErrorLog {
public:
    /// The messages of the logged lines, after the fixed-width columns (66 characters).
    std::vector<std::string> messages() {
        std::vector<std::string> result;
        const std::string all = text();
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
        const std::string all = text();
        if (all.size() < 36) return "";
        std::string source = all.substr(20, 16);
        return source.substr(0, source.find_last_not_of(' ') + 1);
    }
};

// A file holding `content` in a folder of its own, removed with it.
class TempFile {
public:
    explicit TempFile(const std::string& content) : path(dir.file("document.json")) {
        test_support::writeFile(path, content);
    }
    test_support::TempDir dir;
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
