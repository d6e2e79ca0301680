// The plain product section shared by the management agent and the companion service.
#pragma once

#include <cstdint>

/// What tells one plain product section from the other.
struct AgentProduct {
    const char* banner;          // main-log banner and error-log section name
    const char* shortName;       // facts under "products-><shortName>", manifest under ./var
    const char* executable;      // its presence means the product is installed
    uint64_t detectedBit;        // OR-ed into work::detected when installed
    const char* package;         // queried with "rpm -q"
    const char* process;         // looked for in the process listing
    const char* manifestFolder;  // where the product keeps its own manifest
};

/// Writes the product's block to the main log, records "installed" and "package" under
/// "products-><shortName>" and, when installed, processes its manifest. Failures go to the
/// error log; never exits.
void enumerateAgentProduct(const AgentProduct& product);
