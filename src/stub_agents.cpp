// Placeholder until the agent and companion service sections are built.
#include "products.h"
void enumerateTallyhub() {}
void enumerateWatchpost() {}
