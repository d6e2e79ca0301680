// Application manifests: which log files to pack and which commands to run for a product.
#pragma once

/// Finds, loads and processes the product's manifest; 0 when one was found and loaded, else -1.
int processManifest(const char* installFolder, const char* product);
/// Adds the files matching one pattern to work::archiveList; a pattern over the root folder
/// adds nothing and is logged. index is ignored.
void processManifestFile(const char* pattern, const char* installFolder, int index);
