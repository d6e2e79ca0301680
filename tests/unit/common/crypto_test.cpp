// Digests, AES-256-CBC and base64 checked against the openssl command line on the same bytes.
#include "common/crypto.h"
#include <cstring>
#include <random>
#include "test_support.h"

static std::string randomBytes(size_t count) {
    std::mt19937 engine(static_cast<unsigned>(count));
    std::string bytes(count, '\0');
    for (char& c : bytes) c = static_cast<char>(engine());
    return bytes;
}
static std::string hex(const std::string& bytes) {
    std::string text;
    for (unsigned char b : bytes) text += "0123456789abcdef"[b >> 4], text += "0123456789abcdef"[b & 15];
    return text;
}
static unsigned char* u(std::string& bytes) { return reinterpret_cast<unsigned char*>(&bytes[0]); }

TEST(CryptoHash, FileDigestsMatchOpensslDgst) {
    const struct { crypto_type_t type; const char* name; } kAlgorithms[] = {
        {CRYPTO_SHA256, "sha256"}, {CRYPTO_SHA1, "sha1"}, {CRYPTO_MD5, "md5"}};
    ts::TempDir dir;
    for (size_t size : {0, 1, 65535, 65536, 65537, 200000}) {  // around the 64 KiB read block
        const std::string path = dir.write("data", randomBytes(size));
        for (const auto& a : kAlgorithms) {
            const std::string want = ts::run("openssl dgst -" + std::string(a.name) + " -r " + path);
            char hash[SHA256_HASH_SIZE + 1];
            memset(hash, 'x', sizeof hash);
            EXPECT_EQ(0, Crypto().computeHash(a.type, path.c_str(), hash)) << a.name << " " << size;
            EXPECT_EQ(want.substr(0, want.find(' ')), hash) << a.name << " " << size;
            EXPECT_EQ('x', hash[strlen(hash) + 1]) << "written past the text: " << a.name;
        }
    }
}

TEST(CryptoHash, FileThatCannotBeReadGivesMinusOne) {
    ts::TempDir dir;
    const struct { crypto_type_t type; std::string path, message; } kCases[] = {
        {CRYPTO_SHA256, dir.path + "/x", "fopen on " + dir.path + "/x failed: No such file or directory\n\n"},
        {CRYPTO_SHA1, dir.path, "fread on file " + dir.path + " failed: Is a directory\n"},
        {CRYPTO_MD5, dir.path + "/x", "fopen on " + dir.path + "/x failed: No such file or directory\n\n"},
        {CRYPTO_MD5, dir.path, "fread on file " + dir.path + " failed: Is a directory\n"},
    };
    for (const auto& c : kCases) {
        ts::ErrorLog log;
        char hash[SHA256_HASH_SIZE] = "untouched";
        EXPECT_EQ(-1, Crypto().computeHash(c.type, c.path.c_str(), hash)) << c.path << " " << c.type;
        EXPECT_STREQ("untouched", hash) << c.path << " " << c.type;
        EXPECT_EQ(c.message, log.messages()) << c.path << " " << c.type;
    }
}

TEST(CryptoAesAndBase64, ReadWhatOpensslWritesAndWriteWhatItReads) {
    ts::TempDir dir;
    std::string key = "0123456789abcdefghijklmnopqrstuv", iv = "iv of 16 bytes!!";
    const std::string enc = "openssl enc -aes-256-cbc -K " + hex(key) + " -iv " + hex(iv);
    // Ciphertexts of 16, 32 and 1008 bytes: each remainder of a division by 3 for base64.
    for (std::string plain : {std::string(), std::string("sixteen bytes!!!"), randomBytes(1000)}) {
        std::string text = ts::run(enc + " -in " + dir.write("plain", plain) + " | openssl base64 -A");
        std::string cipher(text.size(), '\0'), back(text.size(), '\0'), ours(text.size() + 4, '\0');
        int length = -1;
        EXPECT_EQ(0, Crypto().base64_decode(&text[0], u(cipher), length));
        length = Crypto().aes_256_decrypt(u(cipher), length, u(key), u(iv), u(back));
        EXPECT_EQ(plain, back.substr(0, length)) << plain.size();
        length = Crypto().aes_256_encrypt(u(plain), static_cast<int>(plain.size()), u(key), u(iv), u(cipher));
        EXPECT_EQ(0, Crypto().base64_encode(u(cipher), length, &ours[0]));
        EXPECT_EQ(text, ours.c_str()) << plain.size();
        EXPECT_EQ(plain, ts::run("openssl base64 -d -A -in " + dir.write("ours", ours.c_str()) + " | " + enc + " -d"));
    }
}
