// Run modes whose bodies are not built yet.
#include "modes.h"

void hashPathname(crypto_type_t) {}
void uploadToFtp() {}
void generateDiagnostics() {}
