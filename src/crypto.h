// Message digests, AES-256-CBC and base64.
#pragma once

enum crypto_type_t : int { CRYPTO_SHA256 = 1, CRYPTO_SHA1 = 2, CRYPTO_MD5 = 3 };
