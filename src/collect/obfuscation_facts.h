// What the machine itself says is private: its names, the names it keeps for others, its people.
#pragma once

#include "privacy/obfuscation_map.h"

/// The host name (uname), its fully qualified name (from hostsPath, else the resolver's
/// canonical name, which on a machine without a resolver is the host's own files), every name
/// hostsPath lists, the local accounts with a UID of 1000 or more but nobody's (65534), and the
/// domains, users and keywords of work::obfuscation. Reads only; logs nothing.
privacy::ObfuscationSettings gatherObfuscationFacts(const char* hostsPath = "/etc/hosts");
