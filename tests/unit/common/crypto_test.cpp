// Crypto against the reference tools: coreutils' checksum programs, the openssl command line
// and coreutils' base64, run on the same bytes.
#include "common/crypto.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/work.h"
#include "test_support.h"

namespace {

using test_support::CapturedErrorLog;
using test_support::runCommand;
using test_support::TempDir;
using test_support::writeFile;

std::string randomBytes(size_t count, unsigned seed) {
    std::mt19937 engine(seed);
    std::string bytes(count, '\0');
    for (char& c : bytes)
        c = static_cast<char>(engine() & 0xff);
    return bytes;
}

std::string toHex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : bytes) {
        hex += digits[c >> 4];
        hex += digits[c & 0x0f];
    }
    return hex;
}

struct Algorithm {
    crypto_type_t type;
    const char* tool;
    size_t hexLength;
};

const Algorithm kAlgorithms[] = {
    {CRYPTO_SHA256, "sha256sum", 64},
    {CRYPTO_SHA1, "sha1sum", 40},
    {CRYPTO_MD5, "md5sum", 32},
};

// The digest text coreutils prints for the file: the part before its two blanks.
std::string coreutilsDigest(const Algorithm& a, const std::string& path) {
    std::string line = runCommand(std::string(a.tool) + " '" + path + "'");
    return line.substr(0, line.find(' '));
}

int hashWith(crypto_type_t type, const std::string& path, char* out) {
    Crypto crypto;
    return crypto.computeHash(type, path.c_str(), out);
}

// ---- digests -------------------------------------------------------------------------------

struct VectorCase {
    const char* name;
    crypto_type_t type;
    const char* input;
    const char* want;
};

TEST(CryptoHash, KnownVectorsGiveTheirPublishedDigests) {
    const VectorCase cases[] = {
        {"sha256 empty", CRYPTO_SHA256, "",
         "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"sha256 abc", CRYPTO_SHA256, "abc",
         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"sha256 two blocks", CRYPTO_SHA256,
         "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {"sha1 empty", CRYPTO_SHA1, "", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"sha1 abc", CRYPTO_SHA1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"md5 empty", CRYPTO_MD5, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {"md5 abc", CRYPTO_MD5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"md5 alphabet", CRYPTO_MD5, "abcdefghijklmnopqrstuvwxyz",
         "c3fcd3d76192e4007dfb496cca67e13b"},
    };
    TempDir dir;
    for (const auto& c : cases) {
        std::string path = dir.file("vector");
        writeFile(path, c.input);
        char hash[SHA256_HASH_SIZE] = {};
        EXPECT_EQ(hashWith(c.type, path, hash), 0) << c.name;
        EXPECT_STREQ(hash, c.want) << c.name;
    }
}

TEST(CryptoHash, FilesAroundTheBlockSizeMatchCoreutils) {
    struct SizeCase {
        const char* name;
        size_t size;
    };
    const SizeCase sizes[] = {
        {"empty", 0},
        {"one byte", 1},
        {"one byte short of a block", 65535},
        {"exactly one block", 65536},
        {"one block and a byte", 65537},
        {"a few MiB", 3 * 1024 * 1024 + 17},
    };
    TempDir dir;
    unsigned seed = 1;
    for (const auto& s : sizes) {
        std::string path = dir.file("data");
        writeFile(path, randomBytes(s.size, seed++));
        for (const auto& a : kAlgorithms) {
            char hash[SHA256_HASH_SIZE] = {};
            EXPECT_EQ(hashWith(a.type, path, hash), 0) << s.name << " " << a.tool;
            EXPECT_EQ(std::string(hash), coreutilsDigest(a, path)) << s.name << " " << a.tool;
            EXPECT_EQ(strlen(hash), a.hexLength) << s.name << " " << a.tool;
        }
    }
}

TEST(CryptoHash, DigestTextFillsExactlyItsBufferAndIsTerminated) {
    TempDir dir;
    std::string path = dir.file("data");
    writeFile(path, "gatr");
    for (const auto& a : kAlgorithms) {
        // One guard byte after the buffer the caller must provide.
        std::vector<char> buffer(a.hexLength + 2, 'X');
        ASSERT_EQ(hashWith(a.type, path, buffer.data()), 0) << a.tool;
        EXPECT_EQ(buffer[a.hexLength], '\0') << a.tool;
        EXPECT_EQ(buffer[a.hexLength + 1], 'X') << a.tool;
        for (size_t i = 0; i < a.hexLength; ++i)
            EXPECT_TRUE(isxdigit(buffer[i]) && !isupper(buffer[i])) << a.tool << " at " << i;
    }
}

TEST(CryptoHash, UnknownTypeThrowsWithItsMessage) {
    TempDir dir;
    std::string path = dir.file("data");
    writeFile(path, "x");
    for (int value : {0, 4, -1}) {
        char hash[SHA256_HASH_SIZE] = {};
        try {
            hashWith(static_cast<crypto_type_t>(value), path, hash);
            ADD_FAILURE() << "no exception for type " << value;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(),
                         "Crypto::computeHash(): unknown value passed for argument crypto_type_t")
                << value;
        }
        EXPECT_STREQ(hash, "") << value;
    }
}

TEST(CryptoHash, MissingFileFailsAtOpenAndLeavesTheBufferAlone) {
    TempDir dir;
    std::string path = dir.file("absent");
    for (const auto& a : kAlgorithms) {
        CapturedErrorLog log;
        char hash[SHA256_HASH_SIZE];
        memset(hash, 'X', sizeof hash);
        EXPECT_EQ(hashWith(a.type, path, hash), -1) << a.tool;
        EXPECT_EQ(hash[0], 'X') << a.tool;
        std::string text = log.text();
        std::string want = "fopen on " + path + " failed: No such file or directory\n\n";
        EXPECT_NE(text.find(want), std::string::npos) << a.tool << ": " << text;
        EXPECT_NE(text.find("crypto.cpp"), std::string::npos) << a.tool << ": " << text;
        EXPECT_NE(text.find("ERROR"), std::string::npos) << a.tool << ": " << text;
    }
}

TEST(CryptoHash, FolderGivenAsAFileFailsAtRead) {
    TempDir dir;
    for (const auto& a : kAlgorithms) {
        CapturedErrorLog log;
        char hash[SHA256_HASH_SIZE];
        memset(hash, 'X', sizeof hash);
        EXPECT_EQ(hashWith(a.type, dir.path(), hash), -1) << a.tool;
        EXPECT_EQ(hash[0], 'X') << a.tool;
        std::string text = log.text();
        std::string want = "fread on file " + dir.path() + " failed: Is a directory\n";
        EXPECT_NE(text.find(want), std::string::npos) << a.tool << ": " << text;
    }
}

TEST(CryptoHashDeathTest, UnreadableFileFailsAtOpenWithPermissionDenied) {
    TempDir dir;
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    std::string path = dir.file("secret");
    writeFile(path, "not for you");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    // Root reads any file, so the child gives up root before trying.
    EXPECT_EXIT(
        {
            if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
                _exit(3);
            work::errorsOs = stderr;
            char hash[SHA256_HASH_SIZE] = {};
            _exit(hashWith(CRYPTO_SHA256, path, hash) == -1 && hash[0] == '\0' ? 0 : 2);
        },
        ::testing::ExitedWithCode(0), "fopen on .*/secret failed: Permission denied");
}

// ---- AES-256-CBC ---------------------------------------------------------------------------

const unsigned char kKey[32] = {0x60, 0x3d, 0xeb, 0x10, 0x15, 0xca, 0x71, 0xbe, 0x2b, 0x73, 0xae,
                                0xf0, 0x85, 0x7d, 0x77, 0x81, 0x1f, 0x35, 0x2c, 0x07, 0x3b, 0x61,
                                0x08, 0xd7, 0x2d, 0x98, 0x10, 0xa3, 0x09, 0x14, 0xdf, 0xf4};
const unsigned char kIv[16] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
                               0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f};

std::string keyHex() { return toHex(std::string(reinterpret_cast<const char*>(kKey), 32)); }
std::string ivHex() { return toHex(std::string(reinterpret_cast<const char*>(kIv), 16)); }

struct TextCase {
    const char* name;
    std::string bytes;
};

std::vector<TextCase> cipherCases() {
    return {
        {"one byte", "a"},
        {"fifteen bytes", "fifteen bytes!!"},
        {"exactly one block", "sixteen bytes!!!"},
        {"one block and a byte", "seventeen bytes!!"},
        {"a connector secret", "client_secret=3MVG9.x~Yz_QW-1234567890"},
        {"binary with zero bytes", randomBytes(1000, 11)},
    };
}

TEST(CryptoAes, WhatOpensslEnciphersIsDecodedAndDeciphered) {
    TempDir dir;
    for (const auto& c : cipherCases()) {
        std::string plainPath = dir.file("plain");
        writeFile(plainPath, c.bytes);
        std::string text = runCommand("openssl enc -aes-256-cbc -K " + keyHex() + " -iv " +
                                      ivHex() + " -in '" + plainPath + "' | base64 -w0");
        ASSERT_EQ(text.find('\n'), std::string::npos) << c.name;

        Crypto crypto;
        std::vector<char> textBuffer(text.begin(), text.end());
        textBuffer.push_back('\0');
        std::vector<unsigned char> cipher(text.size() + 1);
        int cipherLength = -1;
        EXPECT_EQ(crypto.base64_decode(textBuffer.data(), cipher.data(), cipherLength), 0)
            << c.name;
        ASSERT_EQ(cipherLength % 16, 0) << c.name;
        ASSERT_EQ(static_cast<size_t>(cipherLength), (c.bytes.size() / 16 + 1) * 16) << c.name;

        std::vector<unsigned char> plain(cipherLength);
        unsigned char key[32], iv[16];
        memcpy(key, kKey, 32);
        memcpy(iv, kIv, 16);
        int plainLength = crypto.aes_256_decrypt(cipher.data(), cipherLength, key, iv, plain.data());
        ASSERT_EQ(static_cast<size_t>(plainLength), c.bytes.size()) << c.name;
        EXPECT_EQ(std::string(reinterpret_cast<char*>(plain.data()), plainLength), c.bytes)
            << c.name;
    }
}

TEST(CryptoAes, WhatGatrEnciphersOpensslDeciphers) {
    TempDir dir;
    std::vector<TextCase> cases = cipherCases();
    cases.push_back({"empty", ""});
    for (const auto& c : cases) {
        Crypto crypto;
        std::vector<unsigned char> plain(c.bytes.begin(), c.bytes.end());
        std::vector<unsigned char> cipher(c.bytes.size() + 16);
        unsigned char key[32], iv[16];
        memcpy(key, kKey, 32);
        memcpy(iv, kIv, 16);
        int cipherLength = crypto.aes_256_encrypt(plain.data(), static_cast<int>(plain.size()),
                                                  key, iv, cipher.data());
        ASSERT_EQ(static_cast<size_t>(cipherLength), (c.bytes.size() / 16 + 1) * 16) << c.name;

        std::vector<char> text(4 * ((cipherLength + 2) / 3) + 1, '\0');
        EXPECT_EQ(crypto.base64_encode(cipher.data(), cipherLength, text.data()), 0) << c.name;
        std::string textPath = dir.file("text");
        writeFile(textPath, text.data());
        std::string deciphered =
            runCommand("base64 -d '" + textPath + "' | openssl enc -d -aes-256-cbc -K " +
                       keyHex() + " -iv " + ivHex());
        EXPECT_EQ(deciphered, c.bytes) << c.name;
    }
}

TEST(CryptoAes, WrongKeyFailsAtFinalStepAndYieldsZero) {
    Crypto crypto;
    std::string secret = "the connector password";
    std::vector<unsigned char> plain(secret.begin(), secret.end());
    unsigned char cipher[64];
    unsigned char key[32], iv[16];
    memcpy(key, kKey, 32);
    memcpy(iv, kIv, 16);
    int cipherLength =
        crypto.aes_256_encrypt(plain.data(), static_cast<int>(plain.size()), key, iv, cipher);
    ASSERT_EQ(cipherLength, 32);

    key[0] ^= 0x01;
    CapturedErrorLog log;
    unsigned char out[64];
    testing::internal::CaptureStderr();
    int result = crypto.aes_256_decrypt(cipher, cipherLength, key, iv, out);
    std::string stderrText = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, 0);
    EXPECT_NE(log.text().find("call to EVP_DecryptFinal_ex() failed\n"), std::string::npos)
        << log.text();
    EXPECT_NE(stderrText.find("bad decrypt"), std::string::npos) << stderrText;
}

TEST(CryptoAes, CiphertextCutShortOfABlockFailsAtFinalStep) {
    Crypto crypto;
    unsigned char cipher[32] = {};
    unsigned char key[32], iv[16], out[64];
    memcpy(key, kKey, 32);
    memcpy(iv, kIv, 16);
    CapturedErrorLog log;
    testing::internal::CaptureStderr();
    int result = crypto.aes_256_decrypt(cipher, 20, key, iv, out);
    std::string stderrText = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, 0);
    EXPECT_NE(log.text().find("call to EVP_DecryptFinal_ex() failed"), std::string::npos)
        << log.text();
    EXPECT_FALSE(stderrText.empty());
}

// ---- base64 --------------------------------------------------------------------------------

TEST(CryptoBase64, PublishedVectorsEncodeAndDecode) {
    struct Case {
        const char* plain;
        const char* text;
    };
    const Case cases[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    Crypto crypto;
    for (const auto& c : cases) {
        char text[32] = {};
        std::string plain = c.plain;
        EXPECT_EQ(crypto.base64_encode(reinterpret_cast<unsigned char*>(plain.data()),
                                       static_cast<int>(plain.size()), text),
                  0)
            << c.plain;
        EXPECT_STREQ(text, c.text) << c.plain;

        char input[32];
        snprintf(input, sizeof input, "%s", c.text);
        unsigned char data[32] = {};
        int length = -1;
        EXPECT_EQ(crypto.base64_decode(input, data, length), 0) << c.text;
        EXPECT_EQ(std::string(reinterpret_cast<char*>(data), length), plain) << c.text;
    }
}

TEST(CryptoBase64, LongInputEncodesOnOneLineLikeCoreutils) {
    TempDir dir;
    std::string bytes = randomBytes(5000, 3);
    std::string path = dir.file("data");
    writeFile(path, bytes);
    std::string want = runCommand("base64 -w0 '" + path + "'");

    Crypto crypto;
    std::vector<char> text(want.size() + 1, '\0');
    crypto.base64_encode(reinterpret_cast<unsigned char*>(bytes.data()),
                         static_cast<int>(bytes.size()), text.data());
    EXPECT_EQ(std::string(text.data()), want);

    std::vector<unsigned char> back(want.size());
    int length = 0;
    crypto.base64_decode(text.data(), back.data(), length);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(back.data()), length), bytes);
}

TEST(CryptoBase64, EncodeAddsNoTerminator) {
    Crypto crypto;
    unsigned char data[] = {'a', 'b', 'c'};
    char text[8];
    memset(text, '#', sizeof text);
    crypto.base64_encode(data, 3, text);
    EXPECT_EQ(std::string(text, sizeof text), "YWJj####");
}

TEST(CryptoBase64, InvalidTextGivesShortOrEmptyResultAndStillReturnsZero) {
    struct Case {
        const char* name;
        const char* text;
        int maxLength;
    };
    const Case cases[] = {
        {"no base64 characters", "!!!!", 0},
        {"empty text", "", 0},
        {"garbage after a valid quantum", "Zm9v!!!!", 3},
    };
    Crypto crypto;
    for (const auto& c : cases) {
        char input[32];
        snprintf(input, sizeof input, "%s", c.text);
        unsigned char data[32] = {};
        int length = -1;
        EXPECT_EQ(crypto.base64_decode(input, data, length), 0) << c.name;
        EXPECT_GE(length, 0) << c.name;
        EXPECT_LE(length, c.maxLength) << c.name;
    }
}

}  // namespace
