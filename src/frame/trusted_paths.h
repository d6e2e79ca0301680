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

/// Opens (O_PATH) the folder that holds path's last component, walking one component at a time
/// and following only the links isTrustedPath trusts, so that nothing swapped in between a check
/// and the open is ever followed. The last component's name goes into last; it is not opened.
/// The descriptor, or -1 with errno set (ELOOP for a link refused). path is normalised.
int openTrustedParent(const std::string& path, std::string& last);
