// The key that deciphers the connector file's credential values.
#pragma once

#include <cstddef>

constexpr size_t CONNECTOR_KEY_SIZE = 32;

/// Writes the 32 key bytes (no terminator) into key, assembled from the four pieces the build
/// supplies. Logs nothing, prints nothing, never exits. Callers wipe the copy after use.
void getConnectorKey(unsigned char* key);
