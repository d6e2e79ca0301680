// What goes into the archive, and the list tar reads its members from.
#pragma once

#include <list>
#include <string>

/// Adds the main log, the error log and every regular file in "<output>/logs" to entries:
/// whatever gatr wrote for the run is packed, whether or not its writer listed it.
void addRunFiles(std::list<std::string>& entries);

/// Writes "/var/log/messages" and then each entry, every name ended by a NUL byte, into the
/// file at path (made or emptied); 0, or -1 (logged).
int writeMemberList(const char* path, const std::list<std::string>& entries);
