// Symbolic links gatr follows: only those an unprivileged user cannot have planted.
#pragma once

#include <list>
#include <string>

/// Whether every symbolic link met on the way along path (the last component included) is
/// owned by root and sits in a folder owned by root that no one else may write. A path whose
/// parts do not exist is trusted as far as it goes.
bool isTrustedPath(const char* path);
/// Removes the entries that pass through an untrusted link, logging each one it removes.
void dropUntrustedPaths(std::list<std::string>& paths);
