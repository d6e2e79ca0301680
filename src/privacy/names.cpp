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

struct Word {
    const char* text;
    size_t length;
};
#define WORD(text) {text, sizeof(text) - 1}

bool equalsAny(const char* word, size_t length, const Word* list, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (list[i].length == length && memcmp(word, list[i].text, length) == 0) return true;
    }
    return false;
}

bool endsWithAny(const char* word, size_t length, const Word* list, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (list[i].length < length && memcmp(word + length - list[i].length, list[i].text, list[i].length) == 0)
            return true;
    }
    return false;
}

const Word SECRET_WORDS[] = {
    WORD("password"), WORD("passwords"), WORD("passwd"), WORD("pass"), WORD("pwd"), WORD("pw"),
    WORD("passphrase"), WORD("passcode"), WORD("secret"), WORD("secrets"), WORD("token"),
    WORD("tokens"), WORD("cookie"), WORD("cookies"), WORD("credential"), WORD("credentials"),
    WORD("creds"), WORD("apikey"), WORD("privkey"), WORD("privatekey"), WORD("secretkey"),
    WORD("accesskey"), WORD("sharedkey"), WORD("psk")};
// Glued to a product or scope name: PGPASSWORD, clientsecret.
const Word SECRET_ENDINGS[] = {WORD("password"), WORD("passwd"), WORD("passphrase"), WORD("secret"),
                               WORD("token"), WORD("credentials"), WORD("credential"), WORD("apikey")};
// "key" alone names many things (a sort key, a routing key); these make it a secret.
const Word KEY_QUALIFIERS[] = {WORD("private"), WORD("api"), WORD("access"), WORD("secret"),
                               WORD("shared"), WORD("preshared"), WORD("signing"), WORD("encryption"),
                               WORD("master"), WORD("hmac"), WORD("auth"), WORD("nonce")};
const Word VPN_BLOCKS[] = {WORD("key"), WORD("secret"), WORD("tls-auth"), WORD("tls-crypt"),
                           WORD("tls-crypt-v2"), WORD("pkcs12")};
#undef WORD

template <size_t N>
constexpr size_t countOf(const Word (&)[N]) {
    return N;
}

/// Lower-cases name[begin, end) into word, without trailing digits (password2 is a password);
/// returns its length.
size_t copyWord(const char* name, size_t begin, size_t end, char* word) {
    while (end > begin && isDigit(name[end - 1])) --end;
    size_t at = 0;
    for (size_t i = begin; i < end; ++i) {
        word[at++] = static_cast<char>(isUpper(name[i]) ? name[i] - 'A' + 'a' : name[i]);
    }
    word[at] = '\0';
    return at;
}

/// Whether a lower-case letter can end a secret word: most names are turned away on this alone.
bool endsLikeASecret(char c) {
    c = static_cast<char>(isUpper(c) ? c - 'A' + 'a' : c);
    return c == 'd' || c == 's' || c == 'w' || c == 'e' || c == 't' || c == 'n' || c == 'l' ||
           c == 'y' || c == 'h' || c == 'k';
}

}  // namespace

NameKind classifyName(const char* name, size_t length) {
    while (length > 0 && (*name == '-' || *name == '$' || *name == '@')) ++name, --length;
    if (length == 0 || length > LONGEST_NAME) return NAME_ORDINARY;
    size_t last = length;
    while (last > 0 && !isUpper(name[last - 1]) && !isLower(name[last - 1])) --last;
    if (last == 0 || !endsLikeASecret(name[last - 1])) return NAME_ORDINARY;
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
    char word[LONGEST_NAME + 1], before[LONGEST_NAME + 1];
    size_t size = copyWord(name, begins[0], ends[0], word);
    if (equalsAny(word, size, SECRET_WORDS, countOf(SECRET_WORDS)) ||
        endsWithAny(word, size, SECRET_ENDINGS, countOf(SECRET_ENDINGS)))
        return NAME_SECRET;
    // SSH_PRIVATE is a key; "private" alone is as often a flag or a word of prose.
    if (found == 2 && size == 7 && memcmp(word, "private", 7) == 0) return NAME_SECRET;
    // An environment variable's *_AUTH holds credentials; a setting's ssl.client.auth or
    // transparentAuth says how to authenticate.
    if (size == 4 && memcmp(word, "auth", 4) == 0) {
        for (size_t i = 0; i < length; ++i) {
            if (!isUpper(name[i]) && !isDigit(name[i]) && name[i] != '_') return NAME_ORDINARY;
        }
        return NAME_SECRET;
    }
    if (found < 2 || size != 3 || memcmp(word, "key", 3) != 0) return NAME_ORDINARY;
    size = copyWord(name, begins[1], ends[1], before);
    return equalsAny(before, size, KEY_QUALIFIERS, countOf(KEY_QUALIFIERS)) ? NAME_SECRET : NAME_ORDINARY;
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
        // A path, or a list of absolute paths.
        for (const char* blank = value; (blank = static_cast<const char*>(memchr(blank, ' ', length - (blank - value)))) != nullptr;) {
            while (blank < value + length && *blank == ' ') ++blank;
            if (blank < value + length && *blank != '/') return false;
        }
        return true;
    }
    if (length > 3 && value[0] == '$' && value[1] == '{' && value[length - 1] == '}') return true;
    if (value[0] == '$') {  // $dir/private/cakey.pem, ${base}/key.pem: a path below a variable's
        const char* slash = static_cast<const char*>(memchr(value, '/', length));
        size_t name = 1;
        while (name < length && (isAlnum(value[name]) || value[name] == '_' || value[name] == '{' || value[name] == '}')) ++name;
        if (slash != nullptr && value + name == slash && name > 1 && memchr(value, ' ', length) == nullptr) return true;
    }
    if (length > 1 && value[0] == '$' && (isUpper(value[1]) || value[1] == '_')) {
        for (size_t i = 1; i < length; ++i) {
            if (!isAlnum(value[i]) && value[i] != '_') return false;
        }
        return true;
    }
    const char* scheme = static_cast<const char*>(memmem(value, length, "://", 3));
    return scheme != nullptr && scheme > value && memchr(value, ' ', length) == nullptr;
}

bool isNameServiceList(const char* value, size_t length) {
    static const Word SOURCES[] = {{"files", 5},  {"systemd", 7}, {"sss", 3},      {"ldap", 4},
                                   {"nis", 3},    {"nisplus", 7}, {"compat", 6},   {"db", 2},
                                   {"winbind", 7}, {"altfiles", 8}, {"cache", 5},   {"hesiod", 6},
                                   {"extrausers", 10}, {"usrfiles", 8}};
    size_t at = 0, words = 0;
    while (at < length) {
        while (at < length && isBlank(value[at])) ++at;
        if (at >= length) break;
        size_t end = at;
        if (value[at] == '[') {
            while (end < length && value[end] != ']') ++end;
            at = end + 1;
            continue;
        }
        while (end < length && !isBlank(value[end])) ++end;
        if (!equalsAny(value + at, end - at, SOURCES, countOf(SOURCES))) return false;
        ++words;
        at = end;
    }
    return words > 0;
}

bool isSecretBlockElement(const char* name, size_t length) {
    char lowered[LONGEST_NAME + 1];
    if (length == 0 || length > LONGEST_NAME) return false;
    for (size_t i = 0; i < length; ++i) {
        lowered[i] = static_cast<char>(isUpper(name[i]) ? name[i] - 'A' + 'a' : name[i]);
    }
    if (equalsAny(lowered, length, VPN_BLOCKS, countOf(VPN_BLOCKS))) return true;
    return classifyName(name, length) == NAME_SECRET;
}

}  // namespace privacy
