// The response buffer of a transfer: fixed before the transfer, one byte kept for the zero.
#include "common/transfer.h"
#include <vector>
#include "test_support.h"

TEST(MwriteHandler, RefusesAWriteThatLeavesNoRoomForTheTerminator) {
    const size_t kAbort = static_cast<size_t>(-1);
    const struct { unsigned long capacity; std::vector<size_t> writes, want; const char* text; } kCases[] = {
        {0, {3}, {3}, "abc"}, {8, {4, 3, 0, 1}, {4, 3, 0, kAbort}, "abcdefg"}, {8, {8}, {kAbort}, ""},
        {4, {4, 3}, {kAbort, 3}, "abc"},
    };
    for (const auto& c : kCases) {
        ResponseBuffer buffer(c.capacity);
        std::vector<size_t> got;
        const char* next = "abcdefghijklmnop";
        for (size_t w : c.writes) {
            got.push_back(mwriteHandler(const_cast<char*>(next), 1, w, &buffer));
            if (got.back() != kAbort) next += w;
        }
        EXPECT_EQ(c.want, got) << c.capacity;
        EXPECT_EQ(c.text, std::string(buffer.data, buffer.used)) << c.capacity;
        EXPECT_EQ(c.capacity == 0 ? 1024u : c.capacity, buffer.capacity);  // the first write allocates 1024
    }
}
