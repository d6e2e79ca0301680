// The three run modes that main chooses between.
#pragma once

#include "crypto.h"

/// The hash mode: prints the hash of a file or of the files matching a pattern; may exit 1.
void hashPathname(crypto_type_t type);
/// The upload mode: sends an archive to the region's support server and updates the case;
/// returns after success, exits 1 on any failure.
void uploadToFtp();
/// The diagnostics run: main log, every section, the archive. Never exits after the main log
/// is open.
void generateDiagnostics();
