// What the unit tests share: a throw-away folder, an environment guard, a command's output, memory streams.
#pragma once
#include <gtest/gtest.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include "frame/work.h"

namespace ts {

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<missing>";
}

struct TempDir {  // a fresh folder under /tmp, removed with its content
    char pattern[32] = "/tmp/gatr_unit_XXXXXX";
    const std::string path = mkdtemp(pattern) != nullptr ? pattern : throw std::runtime_error("mkdtemp failed");
    ~TempDir() { std::error_code ignored; std::filesystem::remove_all(path, ignored); }
    std::string write(const std::string& name, const std::string& bytes) const {  // folders made, path returned
        std::filesystem::create_directories(std::filesystem::path(path + "/" + name).parent_path());
        std::ofstream(path + "/" + name, std::ios::binary) << bytes;
        return path + "/" + name;
    }
};

struct EnvScope {  // sets, or with null unsets, an environment variable until the end of the scope
    const char* name;
    const bool had = getenv(name) != nullptr;
    const std::string saved = had ? getenv(name) : "";
    EnvScope(const char* n, const char* value) : name(n) { value ? setenv(name, value, 1) : unsetenv(name); }
    ~EnvScope() { had ? setenv(name, saved.c_str(), 1) : unsetenv(name); }
};

// Standard output of a shell command, which must exit 0.
inline std::string run(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    char block[4096];
    for (size_t n; pipe != nullptr && (n = fread(block, 1, sizeof block, pipe)) > 0;) output.append(block, n);
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    return output;
}

struct MemoryStream {  // a stream whose text stays in memory
    char* data = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&data, &size);
    MemoryStream() = default;
    MemoryStream(const MemoryStream&) = delete;
    ~MemoryStream() { fclose(stream); free(data); }
    std::string text() { fflush(stream); return std::string(data, size); }
};

struct ErrorLog : MemoryStream {  // the error log in memory until the end of the scope
    FILE* const saved = work::errorsOs;
    ErrorLog() { work::errorsOs = stream; }
    ~ErrorLog() { work::errorsOs = saved; }
    std::string messages() {  // the lines without their 66 columns of time, source, line and status
        std::istringstream lines(text());
        std::string all;
        for (std::string line; std::getline(lines, line);) all += (line.size() >= 66 ? line.substr(66) : line) + "\n";
        return all;
    }
};

inline std::string written(JsonDocument& doc, json_format_t format = JSON_FORMAT_COMPACT) {
    MemoryStream out;
    doc.writeDocument(format, out.stream);
    return out.text();
}

}  // namespace ts
