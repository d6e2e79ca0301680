// Test helpers: point the main log or the error log at a memory buffer for one test.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "work.h"

class CapturedStream {
public:
    explicit CapturedStream(FILE*& target) : target(target) {
        saved = target;
        target = open_memstream(&data, &size);
    }
    ~CapturedStream() {
        if (target != nullptr) fclose(target);
        target = saved;
        free(data);
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;
    std::string text() {
        fflush(target);
        return std::string(data, size);
    }

private:
    FILE*& target;
    FILE* saved = nullptr;
    char* data = nullptr;
    size_t size = 0;
};

struct CapturedMainLog : CapturedStream {
    CapturedMainLog() : CapturedStream(work::logOs) {}
};

struct CapturedErrorLog : CapturedStream {
    CapturedErrorLog() : CapturedStream(work::errorsOs) {}
};
