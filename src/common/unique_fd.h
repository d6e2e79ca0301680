// The one owner of a file descriptor, closed on every path out of the scope that holds it.
#pragma once

#include <unistd.h>

class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : value(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : value(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    int get() const { return value; }
    explicit operator bool() const { return value >= 0; }
    int release() {
        int fd = value;
        value = -1;
        return fd;
    }
    /// Closes what it held and takes fd; the result of close, or 0 when nothing was held.
    int reset(int fd = -1) {
        int result = value >= 0 ? ::close(value) : 0;
        value = fd;
        return result;
    }

private:
    int value;
};
