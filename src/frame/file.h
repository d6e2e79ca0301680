// The one owner of an open stream. Every file gatr opens is close-on-exec: the programs it runs
// must not inherit a log, an archive or a settings file they could write to or hold open.
#pragma once

#include <cstdio>

/// RAII owner of a FILE*, closed on every path out of the scope that opened it.
class File {
public:
    /// Opens path with mode ("r", "wb", "a", ...), close-on-exec; get() is null on failure,
    /// with errno set.
    File(const char* path, const char* mode);
    explicit File(FILE* adopted) : stream(adopted) {}
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    FILE* get() const { return stream; }
    explicit operator bool() const { return stream != nullptr; }
    /// Closes now; the result of fclose, or 0 when nothing was open.
    int close() {
        if (stream == nullptr) return 0;
        int result = fclose(stream);
        stream = nullptr;
        return result;
    }

private:
    FILE* stream;
};
