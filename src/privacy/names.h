// What a setting's name and value say: whether the name calls the value itself a secret (not
// merely something about one), and whether a value is plainly no secret at all.
#pragma once

#include <cstddef>

namespace privacy {

enum NameKind {
    NAME_ORDINARY,
    NAME_SECRET,         // password, api_key, clientSecret, PGPASSWORD...
    NAME_AUTH_HEADER,    // Authorization, Proxy-Authorization
    NAME_COOKIE,         // Cookie: a header when followed by ':', a secret otherwise
    NAME_SET_COOKIE,     // Set-Cookie
    NAME_REGISTRY_AUTH,  // auth, as a container registry login names its credential
};

/// What the name says, decided on its last word(s) once split at . _ - and camelCase: a name
/// that ends in file, path, type, expiry... only describes a secret.
NameKind classifyName(const char* name, size_t length);

/// Whether a value needs no masking whatever its name: empty, a boolean word, null, an absolute
/// path, a URL (its password has a rule of its own), a variable reference, or already masked.
bool isPlainValue(const char* value, size_t length);

/// Whether a value is the sources of an nsswitch.conf database ("passwd: files systemd").
bool isNameServiceList(const char* value, size_t length);

/// Whether an element alone on its line opens a block whose every line is secret: a secret
/// name, or a VPN profile's inline key (<key>, <secret>, <tls-auth>, <tls-crypt>...).
bool isSecretBlockElement(const char* name, size_t length);

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }
inline bool isNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '_' || c == '-' || c == '.';
}

}  // namespace privacy
