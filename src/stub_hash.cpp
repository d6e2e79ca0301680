// Placeholder until the hash mode is built.
#include "modes.h"
void hashPathname(crypto_type_t) {}
