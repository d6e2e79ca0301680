// Every string value under a secret name, however deep: an array of tokens, a credentials
// object. Keys stay, so the shape of the document still shows.
#include "privacy/names.h"
#include "privacy/scanner.h"

namespace privacy {

size_t maskJsonValues(const char* line, size_t size, size_t at, int& depth, int rule, LineEdits& edits) {
    while (at < size) {
        char c = line[at];
        if (c == '{' || c == '[') {
            ++depth;
        } else if (c == '}' || c == ']') {
            if (--depth <= 0) {
                depth = 0;
                return at + 1;
            }
        } else if (c == '"') {
            size_t end = at + 1;
            while (end < size && line[end] != '"') end += line[end] == '\\' ? 2 : 1;
            if (end > size) end = size;
            size_t next = end + 1;
            while (next < size && isBlank(line[next])) ++next;
            bool isKey = next < size && line[next] == ':';
            if (!isKey && !isPlainValue(line + at + 1, end - at - 1)) edits.add(line, at + 1, end, rule);
            at = end;
        }
        ++at;
    }
    return size;
}

}  // namespace privacy
