// One pass over a line. Only a few bytes can start anything worth a closer look ('=' and ':'
// after a name, '<' of an element, '"' after a word, '$' of a hash, '-' of an option or a key
// block, the first letter of a telling token); everything else costs one table look-up.
#include <cstdint>
#include <cstring>

#include "privacy/forms.h"
#include "privacy/names.h"
#include "privacy/scanner.h"

namespace privacy {

namespace {

enum : uint8_t { SEPARATOR = 1, OPENER = 2, TOKEN_START = 4, WORD = 8 };

// Longer names are no setting's: looking further back would cost on long lines.
constexpr size_t LONGEST_NAME = 128;

struct Classes {
    uint8_t of[256] = {};
    Classes() {
        for (int c = 0; c < 256; ++c) {
            if (isNameChar(static_cast<char>(c))) of[c] |= WORD;
        }
        of[static_cast<uint8_t>('=')] |= SEPARATOR;
        of[static_cast<uint8_t>(':')] |= SEPARATOR;
        for (char c : {'<', '"', '$', '-'}) of[static_cast<uint8_t>(c)] |= OPENER;
        for (char c : {'A', 'g', 'x', 's', 'r', 'e'}) of[static_cast<uint8_t>(c)] |= TOKEN_START;
    }
};
const Classes CLASSES;

bool isWordByte(char c) { return (CLASSES.of[static_cast<uint8_t>(c)] & WORD) != 0; }

bool startsWithWord(const char* line, size_t size, size_t at, const char* word) {
    size_t length = strlen(word);
    return at + length < size && memcmp(line + at, word, length) == 0 && isBlank(line[at + length]);
}

class Scanner {
public:
    Scanner(const char* line, size_t size, const LineFacts& facts, LineEdits& edits, Follow& follow)
        : line(line), size(size), facts(facts), edits(edits), follow(follow) {
        indent = indentOf(line, size);
        keyStart = indent;
        if (keyStart + 1 < size && line[keyStart] == '-' && line[keyStart + 1] == ' ') keyStart += 2;
        char first = keyStart < size ? line[keyStart] : '\0';
        for (const char* word : {"export", "declare -x", "declare", "set", "readonly"}) {
            if (first == word[0] && startsWithWord(line, size, keyStart, word)) {
                keyStart += strlen(word) + 1;
                shell = true;
                break;
            }
        }
        while (keyStart < size && isBlank(line[keyStart])) ++keyStart;
    }

    void run(size_t from) {
        for (size_t at = from; at < size; ++at) {
            uint8_t kind = CLASSES.of[static_cast<uint8_t>(line[at])];
            if ((kind & (SEPARATOR | OPENER | TOKEN_START)) == 0) continue;
            bool wordStart = at == 0 || !isWordByte(line[at - 1]);
            if (kind & SEPARATOR) {
                at = afterSeparator(at);
            } else if (line[at] == '-') {
                if (at + 11 < size && line[at + 1] == '-' && memcmp(line + at, "-----BEGIN ", 11) == 0) {
                    at = afterKeyBlock(at);
                } else if (wordStart && (at == 0 || isBlank(line[at - 1]))) {
                    at = maskOption(line, size, at, programs, edits) - 1;
                }
            } else if (line[at] == '<') {
                at = afterElement(at);
            } else if (line[at] == '"') {
                at = afterQuotedWord(at);
            } else if (line[at] == '$') {
                if (at == 0 || !isWordByte(line[at - 1])) at = afterForm(at, matchCryptHash(line, size, at), MASK_CRYPT_HASH);
            } else if (wordStart) {
                int rule = MASK_TOKEN_FORM;
                size_t length = matchTokenForm(line, size, at, rule);
                at = afterForm(at, length, rule);
            }
        }
        if (facts.netrc) maskNetrc();
    }

private:
    size_t afterForm(size_t at, size_t length, int rule) {
        if (length == 0) return at;
        edits.add(line, at, at + length, rule);
        return at + length - 1;
    }

    /// '=' or ':' at `at`: a URL's password, or the value of the name before it.
    size_t afterSeparator(size_t at) {
        if (line[at] == ':' && at + 2 < size && line[at + 1] == '/' && line[at + 2] == '/') {
            size_t begin, end;
            if (findUrlPassword(line, size, at, begin, end)) edits.add(line, begin, end, MASK_URL_PASSWORD);
            return at + 2;
        }
        if (line[at] == ':' && at + 1 < size && line[at + 1] == ':') return at + 1;
        // The name: quoted, or the name characters just before (blanks between allowed).
        size_t nameEnd = at;
        while (nameEnd > 0 && isBlank(line[nameEnd - 1])) --nameEnd;
        size_t nameBegin = nameEnd;
        bool quoted = nameEnd > 0 && (line[nameEnd - 1] == '"' || line[nameEnd - 1] == '\'');
        size_t keyBegin;
        if (quoted) {
            char quote = line[nameEnd - 1];
            nameBegin = --nameEnd;
            while (nameBegin > 0 && line[nameBegin - 1] != quote && nameEnd - nameBegin <= LONGEST_NAME) --nameBegin;
            if (nameBegin == 0 || nameEnd - nameBegin > LONGEST_NAME) return at;
            keyBegin = nameBegin - 1;
        } else {
            while (nameBegin > 0 && isNameChar(line[nameBegin - 1]) && nameEnd - nameBegin <= LONGEST_NAME) --nameBegin;
            if (nameBegin > 0 && (line[nameBegin - 1] == '$' || line[nameBegin - 1] == '@')) --nameBegin;
            keyBegin = nameBegin;
        }
        if (nameBegin == nameEnd) return at;
        NameKind name = classifyName(line + nameBegin, nameEnd - nameBegin);
        bool atLineStart = facts.lineStart && keyBegin == keyStart;
        if (facts.secretData && atLineStart && line[at] == ':' && indent > 0) return maskValue(at, atLineStart, false, MASK_K8S_SECRET);
        if (line[at] == ':' && (name == NAME_AUTH_HEADER || name == NAME_COOKIE || name == NAME_SET_COOKIE)) {
            size_t stop = size;
            if (keyBegin > 0 && (line[keyBegin - 1] == '"' || line[keyBegin - 1] == '\'')) {
                const char* close = static_cast<const char*>(memchr(line + at, line[keyBegin - 1], size - at));
                if (close != nullptr) stop = static_cast<size_t>(close - line);
            }
            size_t value = at + 1;
            while (value < size && isBlank(line[value])) ++value;
            if (value < stop && (line[value] == '"' || line[value] == '\'')) {
                const char* close = static_cast<const char*>(memchr(line + value + 1, line[value], stop - value - 1));
                if (close != nullptr) stop = static_cast<size_t>(close - line);
                ++value;
            }
            if (name == NAME_AUTH_HEADER) return maskAuthorization(line, value, stop, edits) - 1;
            return maskCookies(line, value, stop, name == NAME_SET_COOKIE, edits) - 1;
        }
        if (name == NAME_REGISTRY_AUTH) return quoted && line[at] == ':' ? maskValue(at, false, true, MASK_REGISTRY_AUTH) : at;
        if (name == NAME_ORDINARY) return at;
        if (line[at] == ':' && nameEnd - nameBegin == 6 && memcmp(line + nameBegin, "passwd", 6) == 0 &&
            isNameServiceList(line + at + 1, size - at - 1))
            return at;
        int rule = line[nameBegin] == '-' ? MASK_COMMAND_LINE : MASK_NAMED_VALUE;
        // A quoted name is JSON's: its bare value (a number, null) ends where the next member starts.
        return maskValue(at, atLineStart, quoted, rule);
    }

    /// The value after the separator at `at` of a secret name. Returns where scanning goes on.
    size_t maskValue(size_t at, bool atLineStart, bool oneWord, int rule) {
        size_t value = at + 1;
        while (value < size && isBlank(line[value])) ++value;
        if (value >= size) {
            if (atLineStart && line[at] == ':') {
                follow.kind = FOLLOW_NEXT_VALUE;
                follow.indent = indent;
                follow.rule = rule;
            }
            return at;
        }
        char first = line[value];
        if (first == '"' || first == '\'') {
            size_t end = value + 1;
            while (end < size && line[end] != first) end += line[end] == '\\' && first == '"' ? 2 : 1;
            if (end > size) end = size;
            if (!isPlainValue(line + value + 1, end - value - 1)) edits.add(line, value + 1, end, rule);
            return end;
        }
        // A bracket alone after '=' opens code's structure, not JSON's: nothing to mask.
        if ((first == '{' || first == '[') && line[at] == '=') {
            size_t rest = value + 1;
            while (rest < size && isBlank(line[rest])) ++rest;
            if (rest == size) return at;
        }
        if ((first == '{' || first == '[') && line[at] == ':') {
            int depth = 0;
            size_t end = maskJsonValues(line, size, value, depth, rule, edits);
            if (depth > 0) {
                follow.kind = FOLLOW_JSON;
                follow.depth = depth;
                follow.rule = rule;
            }
            return end - 1;
        }
        if (atLineStart && line[at] == ':' && (first == '|' || first == '>')) {
            size_t rest = value + 1;
            while (rest < size && (line[rest] == '-' || line[rest] == '+' || (line[rest] >= '0' && line[rest] <= '9'))) ++rest;
            while (rest < size && isBlank(line[rest])) ++rest;
            if (rest == size || line[rest] == '#') {
                follow.kind = FOLLOW_BLOCK_SCALAR;
                follow.indent = indent;
                follow.rule = rule;
                return size;
            }
        }
        // At the start of a line a value runs to its end (a value with blanks must not leak its
        // tail), but for the shell's export and declare, which quote such values.
        size_t end = value;
        bool toLineEnd = atLineStart && !oneWord && !shell;
        if (toLineEnd) {
            end = size;
            while (end > value && isBlank(line[end - 1])) --end;
        } else {
            while (end < size && !isBlank(line[end]) && !strchr(",;&\"'<>)}]", line[end])) ++end;
        }
        bool goesOn = end > value && line[end - 1] == '\\' && toLineEnd;
        if (goesOn) --end;
        // A path may carry a comment after it: "$dir/private/cakey.pem# The private key".
        size_t plainEnd = end;
        if (first == '/' || first == '$') {
            const char* hash = static_cast<const char*>(memchr(line + value, '#', end - value));
            if (hash != nullptr) plainEnd = static_cast<size_t>(hash - line);
        }
        if (isPlainValue(line + value, plainEnd - value)) return at;
        if (edits.add(line, value, end, rule) && toLineEnd) {
            follow.kind = goesOn ? FOLLOW_BACKSLASH : FOLLOW_INDENTED;
            follow.indent = indent;
            follow.rule = rule;
        }
        return end;
    }

    /// `<name>` at `at`: a secret element's text, on this line or on the lines that follow.
    size_t afterElement(size_t at) {
        size_t name = at + 1, nameEnd = name;
        while (nameEnd < size && (isNameChar(line[nameEnd]) || line[nameEnd] == ':')) ++nameEnd;
        // Only a secret's element is looked into further: a minified XML line holds thousands.
        if (nameEnd == name || nameEnd >= size || !isSecretBlockElement(line + name, nameEnd - name)) return at;
        size_t open = nameEnd;
        if (line[open] != '>') {
            if (!isBlank(line[open])) return at;
            const char* close = static_cast<const char*>(memchr(line + open, '>', size - open));
            if (close == nullptr || close[-1] == '/') return at;
            open = static_cast<size_t>(close - line);
        }
        std::string closing = "</" + std::string(line + name, nameEnd - name) + ">";
        const char* close = static_cast<const char*>(memmem(line + open, size - open, closing.data(), closing.size()));
        size_t text = open + 1;
        if (close != nullptr) {
            size_t end = static_cast<size_t>(close - line);
            if (memchr(line + text, '<', end - text) != nullptr) return open;  // nested elements
            if (classifyName(line + name, nameEnd - name) == NAME_SECRET && !isPlainValue(line + text, end - text))
                edits.add(line, text, end, MASK_NAMED_VALUE);
            return end;
        }
        // Over several lines only when it opens its line: "# <key>|..." in a comment is no block.
        if (!facts.lineStart || at != indent) return at;
        size_t rest = text;
        while (rest < size && isBlank(line[rest])) ++rest;
        if (rest < size && classifyName(line + name, nameEnd - name) != NAME_SECRET) return at;
        follow.kind = FOLLOW_ELEMENT;
        follow.element = closing;
        if (rest < size && line[rest] == '<') return rest - 1;
        if (rest < size) follow.counted = edits.add(line, rest, size, MASK_NAMED_VALUE);
        return size;
    }

    /// A quoted string after a secret word and blanks: secret "..."; as DNS key files write it.
    size_t afterQuotedWord(size_t at) {
        size_t wordEnd = at;
        while (wordEnd > 0 && isBlank(line[wordEnd - 1])) --wordEnd;
        if (wordEnd == at || wordEnd == 0) return at;
        size_t word = wordEnd;
        while (word > 0 && isNameChar(line[word - 1])) --word;
        if (word == wordEnd || (word > 0 && !isBlank(line[word - 1])) ||
            classifyName(line + word, wordEnd - word) != NAME_SECRET)
            return at;
        const char* close = static_cast<const char*>(memchr(line + at + 1, '"', size - at - 1));
        if (close == nullptr) return at;
        size_t end = static_cast<size_t>(close - line);
        if (!isPlainValue(line + at + 1, end - at - 1)) edits.add(line, at + 1, end, MASK_NAMED_VALUE);
        return end;
    }

    /// A key block's BEGIN at `at`: its body, on this line (a JSON string with "\n" escapes) or
    /// on the lines up to its END.
    size_t afterKeyBlock(size_t at) {
        if (!isKeyBlockBegin(line + at, size - at)) return at + 10;
        const char* dashes = static_cast<const char*>(memmem(line + at + 11, size - at - 11, "-----", 5));
        if (dashes == nullptr) return size;
        size_t body = static_cast<size_t>(dashes - line) + 5;
        const char* end = static_cast<const char*>(memmem(line + body, size - body, "-----END ", 9));
        if (end == nullptr) {
            follow.kind = FOLLOW_KEY_BLOCK;
            follow.indent = indent;
            follow.rule = MASK_PRIVATE_KEY;
            return size;
        }
        size_t bodyEnd = static_cast<size_t>(end - line);
        if (bodyEnd - body >= 4 && memcmp(line + body, "\\n", 2) == 0) body += 2;
        if (bodyEnd - body >= 2 && memcmp(line + bodyEnd - 2, "\\n", 2) == 0) bodyEnd -= 2;
        edits.add(line, body, bodyEnd, MASK_PRIVATE_KEY);
        return bodyEnd;
    }

    /// .netrc: the word after "password", here or at the start of the next line.
    void maskNetrc() {
        bool afterPassword = false;
        for (size_t at = indentOf(line, size); at < size;) {
            size_t end = at;
            while (end < size && !isBlank(line[end])) ++end;
            if (afterPassword) edits.add(line, at, end, MASK_NETRC);
            afterPassword = end - at == 8 && memcmp(line + at, "password", 8) == 0;
            at = end;
            while (at < size && isBlank(line[at])) ++at;
        }
        if (afterPassword) follow.kind = FOLLOW_NETRC;
    }

    const char* line;
    size_t size;
    const LineFacts& facts;
    LineEdits& edits;
    Follow& follow;
    size_t indent = 0;
    size_t keyStart = 0;
    bool shell = false;
    Programs programs;
};

}  // namespace

void scanLine(const char* line, size_t size, size_t from, const LineFacts& facts, LineEdits& edits,
              Follow& follow) {
    Scanner(line, size, facts, edits, follow).run(from);
}

}  // namespace privacy
