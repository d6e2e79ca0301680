// A run that yields to the work of the server it diagnoses: the backup jobs come first.
#pragma once

/// Unless the configuration ("limits": {"low_priority": false}) or --normal-priority asks
/// otherwise, lowers this process to nice 10 and best-effort I/O priority 7, which every program
/// it starts inherits. Logs a warning when the system refuses. Returns whether the run is at
/// low priority.
bool lowerPriority();
