// The diagnostics run: the one place that calls every subsystem, so it sits above them all.
#pragma once

/// The diagnostics run: main log, every section, the archive. Never exits after the main log
/// is open. Returns the exit status: 1 when the archive could not be made (said on standard
/// error), 0 otherwise.
int generateDiagnostics();
