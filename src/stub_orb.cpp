// Placeholder until the backup product section is built.
#include "products.h"
void enumerateOrb(bool, bool) {}
