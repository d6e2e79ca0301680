// Secrets handed to programs as arguments, as the process list and the journal show them.
// "--password=x" is a name and a value and is masked where names are; here are the forms
// without '=': "--password x", mysql's and sshpass's "-px", curl's "-u user:password".
#include <cstring>

#include "privacy/names.h"
#include "privacy/scanner.h"

namespace privacy {

namespace {

size_t wordEnd(const char* line, size_t size, size_t at) {
    while (at < size && !isBlank(line[at])) ++at;
    return at;
}

bool mentions(const char* line, size_t size, const char* word) {
    return memmem(line, size, word, strlen(word)) != nullptr;
}

/// Whether the programs that take a password after -p appear on the line.
bool takesGluedPassword(const char* line, size_t size) {
    return mentions(line, size, "mysql") || mentions(line, size, "mariadb") ||
           mentions(line, size, "sshpass");
}

/// The value that follows an option after blanks, unless it is the next option.
size_t maskNextWord(const char* line, size_t size, size_t at, LineEdits& edits) {
    size_t value = at;
    while (value < size && isBlank(line[value])) ++value;
    if (value == at || value >= size || line[value] == '-') return at;
    size_t end = wordEnd(line, size, value);
    size_t begin = value;
    if (end - begin >= 2 && (line[begin] == '"' || line[begin] == '\'') && line[end - 1] == line[begin]) {
        ++begin;
        --end;
    }
    if (isPlainValue(line + begin, end - begin)) return at;
    edits.add(line, begin, end, MASK_COMMAND_LINE);
    return end;
}

}  // namespace

size_t maskOption(const char* line, size_t size, size_t at, Programs& programs, LineEdits& edits) {
    size_t name = at + 1;
    if (name < size && line[name] == '-') ++name;
    size_t end = name;
    while (end < size && isNameChar(line[end])) ++end;
    if (end == name) return at + 1;
    // -p with the password glued on or as the next word, for the few programs that take it so.
    if (line[name] == 'p' && name == at + 1 && programs.gluedPassword < 0) {
        programs.gluedPassword = takesGluedPassword(line, size);
    }
    if (line[name] == 'p' && name == at + 1 && programs.gluedPassword == 1) {
        if (end == name + 1) return maskNextWord(line, size, end, edits);
        size_t valueEnd = wordEnd(line, size, name + 1);
        edits.add(line, name + 1, valueEnd, MASK_COMMAND_LINE);
        return valueEnd;
    }
    // curl -u user:password, --user user:password: the part after the first colon.
    bool user = (end - name == 1 && line[name] == 'u') || (end - name == 4 && strncmp(line + name, "user", 4) == 0);
    if (user && programs.curl < 0) programs.curl = mentions(line, size, "curl");
    if (user && end < size && isBlank(line[end]) && programs.curl == 1) {
        size_t value = end;
        while (value < size && isBlank(line[value])) ++value;
        size_t valueEnd = wordEnd(line, size, value);
        const char* colon = static_cast<const char*>(memchr(line + value, ':', valueEnd - value));
        if (colon != nullptr) edits.add(line, static_cast<size_t>(colon - line) + 1, valueEnd, MASK_COMMAND_LINE);
        return valueEnd;
    }
    if (end >= size || !isBlank(line[end]) || end - name < 3) return end;
    if (strncmp(line + name, "no-", 3) == 0) return end;
    if (classifyName(line + name, end - name) != NAME_SECRET) return end;
    return maskNextWord(line, size, end, edits);
}

}  // namespace privacy
