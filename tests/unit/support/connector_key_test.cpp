// The connector key as the program assembles it.
#include "support/connector_key.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>

namespace {

TEST(ConnectorKey, ThirtyTwoPrintableCharactersEveryTime) {
    unsigned char first[CONNECTOR_KEY_SIZE + 1] = {};
    unsigned char second[CONNECTOR_KEY_SIZE + 1] = {};
    getConnectorKey(first);
    getConnectorKey(second);
    for (size_t i = 0; i < CONNECTOR_KEY_SIZE; ++i) EXPECT_TRUE(isprint(first[i])) << i;
    EXPECT_EQ(0, memcmp(first, second, CONNECTOR_KEY_SIZE));
    // Exactly 32 bytes are written: the byte after them is untouched.
    EXPECT_EQ(0, first[CONNECTOR_KEY_SIZE]);
}

}  // namespace
