// Placeholder until the upload mode is built.
#include "modes.h"
void uploadToFtp() {}
