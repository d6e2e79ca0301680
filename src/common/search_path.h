// Finding a program the way the shell would, before choosing to run it.
#pragma once

/// Whether an executable regular file of that name lies in a folder of $PATH (an empty entry
/// being the working directory). False when PATH is unset.
bool isOnSearchPath(const char* name);
