// The shape every privacy filter shares, so that a writer can chain them per member: bytes in
// any chunks through feed(), then finish() once; output appended, the same whatever the chunking.
#pragma once

#include <cstddef>
#include <string>

namespace privacy {

class StreamFilter {
public:
    virtual ~StreamFilter() = default;
    virtual void feed(const char* data, size_t size, std::string& out) = 0;
    virtual void finish(std::string& out) = 0;
};

/// Lends the StreamFilter shape to a filter class that has feed() and finish() of its own
/// (MaskingFilter), without that class having to derive from it.
template <class Filter>
class StreamFilterAdapter : public StreamFilter {
public:
    explicit StreamFilterAdapter(Filter& filter) : inner(filter) {}
    void feed(const char* data, size_t size, std::string& out) override { inner.feed(data, size, out); }
    void finish(std::string& out) override { inner.finish(out); }

private:
    Filter& inner;
};

/// Two filters one after the other: what the first gives is fed to the second.
class FilterChain : public StreamFilter {
public:
    FilterChain(StreamFilter& first, StreamFilter& second) : head(first), tail(second) {}
    void feed(const char* data, size_t size, std::string& out) override {
        between.clear();
        head.feed(data, size, between);
        tail.feed(between.data(), between.size(), out);
    }
    void finish(std::string& out) override {
        between.clear();
        head.finish(between);
        tail.feed(between.data(), between.size(), out);
        tail.finish(out);
    }

private:
    StreamFilter& head;
    StreamFilter& tail;
    std::string between;
};

}  // namespace privacy
