// The connector key, put together only when it is needed.
#include "support/connector_key.h"

#include <cstring>

// The build hands the key over in four pieces of eight characters (see CMakeLists.txt), so that
// it never stands whole among the binary's strings.
#include "connector_key_pieces.h"

namespace {
constexpr size_t PIECE_SIZE = 8;
static_assert(sizeof(GATR_KEY_PART1) == PIECE_SIZE + 1, "GATR_KEY_PART1 must be 8 characters");
static_assert(sizeof(GATR_KEY_PART2) == PIECE_SIZE + 1, "GATR_KEY_PART2 must be 8 characters");
static_assert(sizeof(GATR_KEY_PART3) == PIECE_SIZE + 1, "GATR_KEY_PART3 must be 8 characters");
static_assert(sizeof(GATR_KEY_PART4) == PIECE_SIZE + 1, "GATR_KEY_PART4 must be 8 characters");
static_assert(4 * PIECE_SIZE == CONNECTOR_KEY_SIZE, "four pieces make the key");
}  // namespace

void getConnectorKey(unsigned char* key) {
    // Read through volatile pointers, the pieces stay four separate strings: otherwise the
    // optimiser folds them into one 32-byte constant, the whole key again.
    const char* volatile pieces[] = {GATR_KEY_PART1, GATR_KEY_PART2, GATR_KEY_PART3,
                                     GATR_KEY_PART4};
    for (size_t i = 0; i < 4; ++i) memcpy(key + i * PIECE_SIZE, pieces[i], PIECE_SIZE);
}
