// Run modes whose bodies are not built yet.
#include "modes.h"

void uploadToFtp() {}
void generateDiagnostics() {}
