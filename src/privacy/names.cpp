// Names are judged by their last word: "token.expiry.seconds" is about a token, "tokenSecret" is
// one. Words inside other words (keyboard, passive, bypass, monkey) never count.
#include "privacy/names.h"

#include <strings.h>

#include <cstring>

#include "privacy/masking.h"

namespace privacy {

namespace {

constexpr size_t LONGEST_NAME = 128;

bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlnum(char c) { return isUpper(c) || isLower(c) || isDigit(c); }

bool equalsAny(const char* word, const char* const* list) {
    for (; *list != nullptr; ++list) {
        if (strcmp(word, *list) == 0) return true;
    }
    return false;
}

bool endsWithAny(const char* word, const char* const* list) {
    size_t length = strlen(word);
    for (; *list != nullptr; ++list) {
        size_t suffix = strlen(*list);
        if (suffix <= length && strcmp(word + length - suffix, *list) == 0) return true;
    }
    return false;
}

const char* const SECRET_WORDS[] = {
    "password", "passwords", "passwd", "pass", "pwd", "pw", "passphrase", "passcode",
    "secret", "secrets", "token", "tokens", "cookie", "cookies", "credential", "credentials",
    "creds", "apikey", "privkey", "privatekey", "secretkey", "accesskey", "sharedkey", "psk",
    "auth", "private", nullptr};
// Glued to a product or scope name: PGPASSWORD, MYSQL_PWD is split already, clientsecret.
const char* const SECRET_ENDINGS[] = {"password", "passwd", "passphrase", "secret", "token",
                                      "credentials", "credential", "apikey", nullptr};
// "key" alone names many things (a sort key, a routing key); these make it a secret.
const char* const KEY_QUALIFIERS[] = {"private", "api",     "access", "secret",   "shared",
                                      "preshared", "signing", "encryption", "master", "hmac",
                                      "auth",    "nonce",   nullptr};
const char* const VPN_BLOCKS[] = {"key", "secret", "tls-auth", "tls-crypt", "tls-crypt-v2",
                                  "pkcs12", nullptr};

/// Lower-cases name[begin, end) into word, without trailing digits (password2 is a password).
void copyWord(const char* name, size_t begin, size_t end, char* word) {
    while (end > begin && isDigit(name[end - 1])) --end;
    size_t at = 0;
    for (size_t i = begin; i < end; ++i) {
        word[at++] = static_cast<char>(isUpper(name[i]) ? name[i] - 'A' + 'a' : name[i]);
    }
    word[at] = '\0';
}

bool isSecretWords(const char* last, const char* before) {
    if (equalsAny(last, SECRET_WORDS) || endsWithAny(last, SECRET_ENDINGS)) return true;
    return strcmp(last, "key") == 0 && equalsAny(before, KEY_QUALIFIERS);
}

}  // namespace

NameKind classifyName(const char* name, size_t length) {
    while (length > 0 && (*name == '-' || *name == '$' || *name == '@')) ++name, --length;
    if (length == 0 || length > LONGEST_NAME) return NAME_ORDINARY;
    // The shell keeps folders there, whatever the letters say.
    if ((length == 3 && memcmp(name, "PWD", 3) == 0) || (length == 6 && memcmp(name, "OLDPWD", 6) == 0))
        return NAME_ORDINARY;
    if (length == 13 && strncasecmp(name, "authorization", 13) == 0) return NAME_AUTH_HEADER;
    if (length == 19 && strncasecmp(name, "proxy-authorization", 19) == 0) return NAME_AUTH_HEADER;
    if (length == 6 && strncasecmp(name, "cookie", 6) == 0) return NAME_COOKIE;
    if (length == 10 && strncasecmp(name, "set-cookie", 10) == 0) return NAME_SET_COOKIE;
    // Alone, "auth" says how (auth="Container", auth=true) unless a registry login holds it.
    if (length == 4 && strncasecmp(name, "auth", 4) == 0) return NAME_REGISTRY_AUTH;
    // The last two words, found by walking back over separators and camelCase humps.
    size_t ends[2] = {length, 0}, begins[2] = {0, 0};
    int found = 0;
    size_t end = length;
    while (found < 2 && end > 0) {
        while (end > 0 && !isAlnum(name[end - 1])) --end;
        if (end == 0) break;
        size_t begin = end - 1;
        while (begin > 0 && isAlnum(name[begin - 1])) {
            char previous = name[begin - 1], current = name[begin];
            bool hump = (isLower(previous) && isUpper(current)) ||
                        (isUpper(previous) && isUpper(current) && begin + 1 < end &&
                         isLower(name[begin + 1]));
            if (hump) break;
            --begin;
        }
        ends[found] = end;
        begins[found] = begin;
        ++found;
        end = begin;
    }
    if (found == 0) return NAME_ORDINARY;
    char last[LONGEST_NAME + 1], before[LONGEST_NAME + 1] = "";
    copyWord(name, begins[0], ends[0], last);
    if (found == 2) copyWord(name, begins[1], ends[1], before);
    return isSecretWords(last, before) ? NAME_SECRET : NAME_ORDINARY;
}

bool isPlainValue(const char* value, size_t length) {
    while (length > 0 && isBlank(*value)) ++value, --length;
    while (length > 0 && isBlank(value[length - 1])) --length;
    if (length == 0) return true;
    if (length == 8 && memcmp(value, MASKED_VALUE, 8) == 0) return true;
    static const char* const WORDS[] = {"true", "false", "yes", "no", "on", "off",
                                        "null", "none", "nil", "~", nullptr};
    for (const char* const* word = WORDS; *word != nullptr; ++word) {
        if (strlen(*word) == length && strncasecmp(value, *word, length) == 0) return true;
    }
    if (value[0] == '/' || (length > 1 && value[0] == '~' && value[1] == '/') ||
        (length > 2 && isAlnum(value[0]) && value[1] == ':' && value[2] == '\\')) {
        return memchr(value, ' ', length) == nullptr;
    }
    if (length > 3 && value[0] == '$' && value[1] == '{' && value[length - 1] == '}') return true;
    if (length > 1 && value[0] == '$' && (isUpper(value[1]) || value[1] == '_')) {
        for (size_t i = 1; i < length; ++i) {
            if (!isAlnum(value[i]) && value[i] != '_') return false;
        }
        return true;
    }
    const char* scheme = static_cast<const char*>(memmem(value, length, "://", 3));
    return scheme != nullptr && scheme > value && memchr(value, ' ', length) == nullptr;
}

bool isSecretBlockElement(const char* name, size_t length) {
    char lowered[LONGEST_NAME + 1];
    if (length == 0 || length > LONGEST_NAME) return false;
    for (size_t i = 0; i < length; ++i) {
        lowered[i] = static_cast<char>(isUpper(name[i]) ? name[i] - 'A' + 'a' : name[i]);
    }
    lowered[length] = '\0';
    if (equalsAny(lowered, VPN_BLOCKS)) return true;
    return classifyName(name, length) == NAME_SECRET;
}

}  // namespace privacy
