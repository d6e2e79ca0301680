// Placeholder until the diagnostics run is built.
#include "modes.h"
void generateDiagnostics() {}
