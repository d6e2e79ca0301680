// The product sections of the diagnostics run.
#pragma once

/// The backup product section: detection, probes, REST reports, manifest, dependency list.
void enumerateOrb(bool debug, bool threads);
/// The companion service section.
void enumerateTallyhub();
/// The management agent section.
void enumerateWatchpost();
