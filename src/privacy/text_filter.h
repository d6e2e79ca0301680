// One stage of the transforms a member's text passes through on its way into the archive
// (masking now, obfuscation later): stages are chained by feeding one's output to the next.
#pragma once

#include <cstddef>
#include <string>

namespace privacy {

/// A stream transform: feed() bytes in any chunks, finish() once; output is appended to `out`
/// and does not depend on how the input was cut.
class TextFilter {
public:
    virtual ~TextFilter() = default;
    virtual void feed(const char* data, size_t size, std::string& out) = 0;
    virtual void finish(std::string& out) = 0;
};

/// A stage that changes nothing: the place of a stage the run switched off.
class PassThrough : public TextFilter {
public:
    void feed(const char* data, size_t size, std::string& out) override { out.append(data, size); }
    void finish(std::string&) override {}
};

/// Two stages as one: what `first` puts out is fed to `second` at once, so that nothing but the
/// stages' own bounded state is held between calls.
class FilterChain : public TextFilter {
public:
    FilterChain(TextFilter& first, TextFilter& second) : first(first), second(second) {}
    void feed(const char* data, size_t size, std::string& out) override {
        between.clear();
        first.feed(data, size, between);
        second.feed(between.data(), between.size(), out);
    }
    void finish(std::string& out) override {
        between.clear();
        first.finish(between);
        second.feed(between.data(), between.size(), out);
        second.finish(out);
    }

private:
    TextFilter& first;
    TextFilter& second;
    std::string between;
};

}  // namespace privacy
