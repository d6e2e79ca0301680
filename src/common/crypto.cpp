// Whole-file digests, AES-256-CBC and single-line base64 over libcrypto's EVP and BIO layers.
#include "common/crypto.h"

#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "frame/file.h"
#include "frame/i18n.h"
#include "frame/logging.h"

namespace {

// Files are read in blocks of this size whatever their length, so memory stays constant.
constexpr size_t HASH_BLOCK_SIZE = 65536;

struct DigestContextFreer {
    void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
struct CipherContextFreer {
    void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
};
struct BioChainFreer {
    void operator()(BIO* b) const { BIO_free_all(b); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextFreer>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFreer>;
using BioChain = std::unique_ptr<BIO, BioChainFreer>;

// One digest algorithm and the names its failure messages give. Support staff search the error
// log for these names, so each message names one fixed step, including the MD5 update step,
// reported as "SHA1_Update()": the search that finds one digest's failure finds them all.
struct DigestKind {
    const EVP_MD* (*algorithm)();
    const char* initName;
    const char* updateName;
    const char* finalName;
};

const DigestKind SHA256_KIND = {EVP_sha256, "SHA256_Init()", "SHA256_Update()", "SHA256_Final()"};
const DigestKind SHA1_KIND = {EVP_sha1, "SHA1_Init()", "SHA1_Update()", "SHA1_Final()"};
const DigestKind MD5_KIND = {EVP_md5, "MD5_Init()", "SHA1_Update()", "MD5_Final()"};

void logCallFailed(unsigned line, const char* call) {
    logError(__FILE__, line, STATUS_ERROR, _("call to %s failed: %s"), call, strerror(errno));
}

// Writes each byte as two lower-case hexadecimal digits and terminates the text.
void writeHex(const unsigned char* bytes, unsigned count, char* text) {
    static const char digits[] = "0123456789abcdef";
    for (unsigned i = 0; i < count; ++i) {
        text[2 * i] = digits[bytes[i] >> 4];
        text[2 * i + 1] = digits[bytes[i] & 0x0f];
    }
    text[2 * count] = '\0';
}

int hashFileWith(const DigestKind& kind, const char* path, char* hash) {
    DigestContext context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), kind.algorithm(), nullptr) != 1) {
        logCallFailed(__LINE__, kind.initName);
        return -1;
    }

    File file(path, "rb");
    if (!file) {
        // Untranslated: support searches error logs from every locale for this one text.
        logError(__FILE__, __LINE__, STATUS_ERROR, "fopen on %s failed: %s\n", path,
                 strerror(errno));
        return -1;
    }

    // The 64 KiB block is the only buffer: stdio's own would add a copy and, per file, a stat
    // and an allocation.
    setvbuf(file.get(), nullptr, _IONBF, 0);

    // The block is all zeros before every read. Only what the previous read filled needs
    // clearing again, which keeps a walk over many small files from clearing 64 KiB twice each.
    unsigned char block[HASH_BLOCK_SIZE] = {};
    size_t count = 0;
    for (;;) {
        memset(block, 0, count);
        count = fread(block, 1, sizeof block, file.get());
        if (ferror(file.get())) {
            logError(__FILE__, __LINE__, STATUS_ERROR, _("fread on file %s failed: %s"), path,
                     strerror(errno));
            return -1;
        }
        if (count == 0)
            break;
        if (EVP_DigestUpdate(context.get(), block, count) != 1) {
            logCallFailed(__LINE__, kind.updateName);
            return -1;
        }
        // The stream already met the end: asking again would only read 0 bytes.
        if (feof(file.get()))
            break;
    }
    file.close();

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &digestLength) != 1) {
        logCallFailed(__LINE__, kind.finalName);
        return -1;
    }
    memset(hash, 0, 2 * digestLength + 1);
    writeHex(digest, digestLength, hash);
    return 0;
}

// The names the failure messages give for one direction of the cipher.
struct CipherDirection {
    int encrypt;
    const char* initName;
    const char* updateName;
    const char* finalName;
};

const CipherDirection DECRYPTION = {0, "EVP_DecryptInit_ex()", "EVP_DecryptUpdate()",
                                    "EVP_DecryptFinal_ex()"};
const CipherDirection ENCRYPTION = {1, "EVP_EncryptInit_ex()", "EVP_EncryptUpdate()",
                                    "EVP_EncryptFinal_ex()"};

int reportCipherFailure(unsigned line, const char* call) {
    logError(__FILE__, line, STATUS_ERROR, _("call to %s failed"), call);
    ERR_print_errors_fp(stderr);
    return 0;
}

int runCipher(const CipherDirection& direction, const unsigned char* in, int length,
              const unsigned char* key, const unsigned char* iv, unsigned char* out) {
    CipherContext context(EVP_CIPHER_CTX_new());
    if (!context)
        return reportCipherFailure(__LINE__, "EVP_CIPHER_CTX_new()");
    if (EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key, iv,
                          direction.encrypt) != 1)
        return reportCipherFailure(__LINE__, direction.initName);
    int written = 0;
    if (EVP_CipherUpdate(context.get(), out, &written, in, length) != 1)
        return reportCipherFailure(__LINE__, direction.updateName);
    int finalWritten = 0;
    if (EVP_CipherFinal_ex(context.get(), out + written, &finalWritten) != 1)
        return reportCipherFailure(__LINE__, direction.finalName);
    return written + finalWritten;
}

// A base64 filter without line breaks on top of the given memory BIO; null when either BIO
// could not be made (the memory BIO is then freed here).
BioChain makeBase64Chain(BIO* memory) {
    if (!memory)
        return BioChain();
    BIO* filter = BIO_new(BIO_f_base64());
    if (!filter) {
        BIO_free(memory);
        return BioChain();
    }
    BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
    return BioChain(BIO_push(filter, memory));
}

}  // namespace

int Crypto::computeHash(crypto_type_t type, const char* path, char* hash) {
    switch (type) {
    case CRYPTO_SHA256:
        return computeSha256Hash(path, hash);
    case CRYPTO_SHA1:
        return computeSha1Hash(path, hash);
    case CRYPTO_MD5:
        return computeMd5Hash(path, hash);
    }
    throw std::runtime_error(
        "Crypto::computeHash(): unknown value passed for argument crypto_type_t");
}

int Crypto::computeSha256Hash(const char* path, char* hash) {
    return hashFileWith(SHA256_KIND, path, hash);
}

int Crypto::computeSha1Hash(const char* path, char* hash) {
    return hashFileWith(SHA1_KIND, path, hash);
}

int Crypto::computeMd5Hash(const char* path, char* hash) {
    return hashFileWith(MD5_KIND, path, hash);
}

int Crypto::aes_256_decrypt(unsigned char* ciphertext, int length, unsigned char* key,
                            unsigned char* iv, unsigned char* plaintext) {
    return runCipher(DECRYPTION, ciphertext, length, key, iv, plaintext);
}

int Crypto::aes_256_encrypt(unsigned char* plaintext, int length, unsigned char* key,
                            unsigned char* iv, unsigned char* ciphertext) {
    return runCipher(ENCRYPTION, plaintext, length, key, iv, ciphertext);
}

int Crypto::base64_decode(char* text, unsigned char* data, int& length) {
    length = 0;
    size_t textLength = strlen(text);
    int limit = textLength > INT_MAX ? INT_MAX : static_cast<int>(textLength);
    BioChain chain = makeBase64Chain(BIO_new_mem_buf(text, limit));
    if (!chain || limit == 0)
        return 0;
    int count = BIO_read(chain.get(), data, limit);
    // Invalid text makes the filter stop early or report an error: a short or empty result.
    length = count > 0 ? count : 0;
    return 0;
}

int Crypto::base64_encode(unsigned char* data, int length, char* text) {
    BIO* memory = BIO_new(BIO_s_mem());
    BioChain chain = makeBase64Chain(memory);
    if (!chain || length <= 0)
        return 0;
    if (BIO_write(chain.get(), data, length) <= 0 || BIO_flush(chain.get()) != 1)
        return 0;
    BUF_MEM* encoded = nullptr;
    BIO_get_mem_ptr(memory, &encoded);
    if (!encoded)
        return 0;
    // The memory is not terminated; the text never holds a zero byte, so stop at its end.
    for (size_t i = 0; i < encoded->length && encoded->data[i] != '\0'; ++i)
        text[i] = encoded->data[i];
    return 0;
}
