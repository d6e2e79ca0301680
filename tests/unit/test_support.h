// Helpers the unit tests share: a throw-away folder, file writing, running a reference tool,
// and the error log or the main log held in memory.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "frame/work.h"

namespace test_support {

// A fresh folder under /tmp, removed with its content at the end of the test.
class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/gatr_test_XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made != nullptr)
            path_ = made;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

inline void writeFile(const std::string& path, const std::string& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    EXPECT_EQ(fwrite(bytes.data(), 1, bytes.size(), f), bytes.size()) << path;
    EXPECT_EQ(fclose(f), 0) << path;
}

// Sets or unsets an environment variable and restores it afterwards.
class EnvScope {
public:
    EnvScope(const char* name, const char* value) : name_(name) {
        const char* old = getenv(name);
        if (old != nullptr) saved_ = old, had_ = true;
        if (value != nullptr) setenv(name, value, 1); else unsetenv(name);
    }
    ~EnvScope() {
        if (had_) setenv(name_, saved_.c_str(), 1); else unsetenv(name_);
    }
    EnvScope(const EnvScope&) = delete;
    EnvScope& operator=(const EnvScope&) = delete;

private:
    const char* name_;
    std::string saved_;
    bool had_ = false;
};

// Standard output of a shell command; the test fails if the command does not exit 0.
inline std::string runCommand(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "popen failed: " << command;
        return output;
    }
    char block[4096];
    size_t n;
    while ((n = fread(block, 1, sizeof block, pipe)) > 0)
        output.append(block, n);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

// Points one of the two logs at a memory buffer for the life of the object, then puts back
// the stream that was there.
template <FILE*& Stream>
class CapturedStream {
public:
    CapturedStream() : saved_(Stream) { Stream = open_memstream(&text_, &size_); }
    ~CapturedStream() {
        if (Stream != nullptr)
            fclose(Stream);
        Stream = saved_;
        free(text_);
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;
    std::string text() {
        fflush(Stream);
        return std::string(text_, size_);
    }

private:
    FILE* saved_;
    char* text_ = nullptr;
    size_t size_ = 0;
};

using CapturedErrorLog = CapturedStream<work::errorsOs>;
using CapturedMainLog = CapturedStream<work::logOs>;

}  // namespace test_support
