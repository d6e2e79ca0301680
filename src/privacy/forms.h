// Secrets known by their form alone, whatever name they stand under: key blocks, tokens with a
// telling prefix, JSON Web Tokens, crypt hashes and the password of a URL.
#pragma once

#include <cstddef>

namespace privacy {

/// Whether line[0, size) holds a key block's BEGIN line (a private key, OpenSSH, PGP or VPN
/// static key; certificates and public keys are not secret) or any block's END line.
bool isKeyBlockBegin(const char* line, size_t size);
bool isKeyBlockEnd(const char* line, size_t size);

/// Whether a line can sit inside a key block: base64 text or an armour header, nothing else.
bool isKeyBlockBody(const char* line, size_t size);

/// The length of the token that starts at text[at] when its form says it is a secret (0 if
/// not), with its rule (MASK_JWT or MASK_TOKEN_FORM). The caller has checked that text[at]
/// starts a word.
size_t matchTokenForm(const char* text, size_t size, size_t at, int& rule);

/// The length of the crypt hash that starts at text[at] ('$'), or 0.
size_t matchCryptHash(const char* text, size_t size, size_t at);

/// For the "://" at text[at]: whether a password follows the user name, and where.
bool findUrlPassword(const char* text, size_t size, size_t at, size_t& begin, size_t& end);

}  // namespace privacy
