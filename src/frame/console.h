// Console interactions: the progress bar of a diagnostics run and the yes/no question asked
// before a destructive action.
#pragma once

/// Redraws the 70-column progress bar on standard output for percent (0 to 100); prints
/// nothing when OPT_SILENT is set, ends the line at 100. Never logs, never exits.
void setProgressBar(int percent);

/// Asks "Do you wish to proceed y[es] or n[o]?" until the answer is a beginning of the
/// translated "yes" (returns 1) or "no" (returns 0), in any case; asks again for anything
/// else. The end of standard input is a "no" (returns 0). Never logs.
int getUserConfirmation();
