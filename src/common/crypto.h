// Whole-file digests (SHA-256, SHA-1, MD5), AES-256-CBC and single-line base64 over libcrypto.
#pragma once

// The digest algorithms; the values are fixed because the command line and the hash mode pass
// them around as numbers.
enum crypto_type_t : int {
    CRYPTO_SHA256 = 1,
    CRYPTO_SHA1 = 2,
    CRYPTO_MD5 = 3
};

// Output buffer sizes for the lower-case hexadecimal digest text, terminator included.
constexpr int SHA256_HASH_SIZE = 65;
constexpr int SHA1_HASH_SIZE = 41;
constexpr int MD5_HASH_SIZE = 33;

// Stateless: objects are made on the stack where needed. Every failure is logged once to the
// error log at severity ERROR and reported by the result; nothing here exits.
class Crypto {
public:
    Crypto() = default;
    virtual ~Crypto() = default;

    /// Hashes the file at path with the given algorithm into hash (65, 41 or 33 bytes) as
    /// lower-case hexadecimal text; 0, or -1 (logged). Throws std::runtime_error for any type
    /// other than the three algorithms.
    int computeHash(crypto_type_t type, const char* path, char* hash);
    /// SHA-256 of the file into a 65-byte buffer; 0, or -1 (logged).
    int computeSha256Hash(const char* path, char* hash);
    /// SHA-1 of the file into a 41-byte buffer; 0, or -1 (logged).
    int computeSha1Hash(const char* path, char* hash);
    /// MD5 of the file into a 33-byte buffer; 0, or -1 (logged).
    int computeMd5Hash(const char* path, char* hash);

    /// Deciphers length bytes of AES-256-CBC with PKCS#7 padding (32-byte key, 16-byte iv)
    /// into plaintext, which must hold length bytes; the plaintext length, or 0 on failure
    /// (logged, and libcrypto's error queue printed to standard error).
    int aes_256_decrypt(unsigned char* ciphertext, int length, unsigned char* key,
                        unsigned char* iv, unsigned char* plaintext);
    /// Enciphers length bytes with AES-256-CBC and PKCS#7 padding into ciphertext, which must
    /// hold length + 16 bytes; the ciphertext length, or 0 on failure (logged, and libcrypto's
    /// error queue printed to standard error).
    int aes_256_encrypt(unsigned char* plaintext, int length, unsigned char* key,
                        unsigned char* iv, unsigned char* ciphertext);

    /// Decodes the NUL-terminated single-line base64 text into data (which must hold
    /// strlen(text) bytes) and stores the decoded byte count in length; invalid text gives a
    /// short or zero length. Always 0, logs nothing.
    int base64_decode(char* text, unsigned char* data, int& length);
    /// Encodes length bytes as base64 text without line breaks into text, which the caller
    /// zeroes beforehand and sizes for 4 * ((length + 2) / 3) + 1 bytes; no terminator is
    /// added. Always 0, logs nothing.
    int base64_encode(unsigned char* data, int length, char* text);
};
