// Values that run over several lines. Each form keeps the line structure: a key block becomes
// one masked line between its BEGIN and END lines, a block scalar or an element keeps its
// indentation, a list keeps its dashes.
#include "privacy/line_masker.h"

#include <cstring>

#include "privacy/forms.h"
#include "privacy/names.h"

namespace privacy {

namespace {

bool startsWith(const char* line, size_t length, const char* prefix) {
    size_t size = strlen(prefix);
    return length >= size && memcmp(line, prefix, size) == 0;
}

/// Whether the line is `name:` alone, opening a mapping (a log's "data: {...}" is not one).
bool isMappingHeader(const char* line, size_t length, const char* name) {
    size_t size = strlen(name);
    if (!startsWith(line, length, name)) return false;
    while (size < length && isBlank(line[size])) ++size;
    return size == length || line[size] == '#';
}

/// Whether the line, from `at`, reads as a setting of its own: name= or name: (not a URL).
bool isSetting(const char* line, size_t length, size_t at) {
    size_t end = at;
    if (end < length && (line[end] == '"' || line[end] == '\'')) ++end;
    while (end < length && isNameChar(line[end])) ++end;
    if (end == at) return false;
    if (end < length && (line[end] == '"' || line[end] == '\'')) ++end;
    while (end < length && isBlank(line[end])) ++end;
    if (end >= length) return false;
    if (line[end] == '=') return true;
    return line[end] == ':' && (end + 1 == length || isBlank(line[end + 1]));
}

}  // namespace

void LineMasker::openKeyBlock(int rule) {
    inKeyBlock = true;
    keyBodyWritten = false;
    keyRule = rule;
}

int LineMasker::countOnce() {
    int rule = open.counted ? UNCOUNTED : open.rule;
    open.counted = true;
    return rule;
}

bool LineMasker::continueKeyBlock(const char* line, size_t length) {
    if (isKeyBlockEnd(line, length)) {
        inKeyBlock = false;
        return true;
    }
    if (!isKeyBlockBody(line, length)) {  // no END came: the block was cut short
        inKeyBlock = false;
        return false;
    }
    size_t indent = indentOf(line, length);
    if (keyBodyWritten) {
        dropLine = true;
    } else if (indent < length) {
        edits.add(line, indent, length, keyRule);
        keyBodyWritten = true;
    }
    return true;
}

bool LineMasker::continueIndented(const char* line, size_t length) {
    size_t indent = indentOf(line, length);
    bool blank = indent == length;
    bool comment = !blank && (line[indent] == '#' || line[indent] == ';');
    bool item = indent + 1 < length && line[indent] == '-' && line[indent + 1] == ' ';
    bool deeper = indent > open.indent;
    switch (open.kind) {
        case FOLLOW_BLOCK_SCALAR:
            if (blank) return true;
            if (!deeper) break;
            if (isKeyBlockBegin(line, length)) {
                openKeyBlock(countOnce());
            } else if (edits.add(line, indent, length, open.counted ? UNCOUNTED : open.rule)) {
                open.counted = true;
            }
            return true;
        case FOLLOW_NEXT_VALUE:
        case FOLLOW_LIST:
            if (blank || comment) return true;
            if (item && (deeper || indent == open.indent)) {
                open.kind = FOLLOW_LIST;
                if (isSetting(line, length, indent + 2)) return false;
                size_t value = indent + 2, end = length;
                while (value < end && isBlank(line[value])) ++value;
                if (end - value >= 2 && (line[value] == '"' || line[value] == '\'') && line[end - 1] == line[value]) {
                    ++value;
                    --end;
                }
                if (!isPlainValue(line + value, end - value)) edits.add(line, value, end, open.rule);
                return true;
            }
            if (open.kind == FOLLOW_NEXT_VALUE && deeper && !isSetting(line, length, indent)) {
                if (isKeyBlockBegin(line, length)) {
                    open.kind = FOLLOW_NONE;
                    openKeyBlock(MASK_PRIVATE_KEY);
                    return true;
                }
                if (!isPlainValue(line + indent, length - indent)) edits.add(line, indent, length, open.rule);
                open.kind = FOLLOW_INDENTED;
                return true;
            }
            break;
        case FOLLOW_INDENTED:
            if (blank || comment || item || !deeper || isSetting(line, length, indent)) break;
            edits.add(line, indent, length, UNCOUNTED);
            return true;
        case FOLLOW_BACKSLASH: {
            size_t end = length;
            bool goesOn = end > indent && line[end - 1] == '\\';
            if (goesOn) --end;
            edits.add(line, indent, end, UNCOUNTED);
            if (!goesOn) open.kind = FOLLOW_NONE;
            return true;
        }
        default:
            break;
    }
    open.kind = FOLLOW_NONE;
    return false;
}

bool LineMasker::continueOpen(const char* line, size_t length, size_t& from) {
    if (inKeyBlock && continueKeyBlock(line, length)) return true;
    switch (open.kind) {
        case FOLLOW_NONE:
            return false;
        case FOLLOW_JSON:
            from = maskJsonValues(line, length, 0, open.depth, open.rule, edits);
            if (open.depth == 0) open.kind = FOLLOW_NONE;
            return from >= length;
        case FOLLOW_NETRC: {
            open.kind = FOLLOW_NONE;
            size_t at = indentOf(line, length), end = at;
            while (end < length && !isBlank(line[end])) ++end;
            edits.add(line, at, end, MASK_NETRC);
            from = end;
            return false;
        }
        case FOLLOW_ELEMENT: {
            size_t indent = indentOf(line, length);
            const char* close = static_cast<const char*>(memmem(line, length, open.element.data(), open.element.size()));
            size_t end = close != nullptr ? static_cast<size_t>(close - line) : length;
            if (close == nullptr && isKeyBlockBegin(line, length)) {
                open.rule = MASK_PRIVATE_KEY;
                openKeyBlock(countOnce());
                return true;
            }
            // A nested element is judged by its own name: masking it whole would break the XML.
            if (close == nullptr && indent < length && line[indent] == '<') return false;
            size_t textEnd = end;
            while (textEnd > indent && isBlank(line[textEnd - 1])) --textEnd;
            if (textEnd > indent && line[indent] != '#' && line[indent] != '<' &&
                edits.add(line, indent, textEnd, open.counted ? UNCOUNTED : MASK_NAMED_VALUE))
                open.counted = true;
            if (close == nullptr) return true;
            open.kind = FOLLOW_NONE;
            from = end;
            return false;
        }
        default:
            return continueIndented(line, length);
    }
}

void LineMasker::releaseHeld(Kind documentKind, std::string& out, MaskCounts& counts) {
    holding = false;
    std::string lines;
    lines.swap(held);
    bool savedMidLine = midLine;
    midLine = false;
    kind = documentKind;
    for (size_t begin = 0; begin < lines.size();) {
        const char* newline = static_cast<const char*>(memchr(lines.data() + begin, '\n', lines.size() - begin));
        size_t end = newline != nullptr ? static_cast<size_t>(newline - lines.data()) + 1 : lines.size();
        maskLine(lines.data() + begin, end - begin, out, counts);
        begin = end;
    }
    midLine = savedMidLine;
}

bool LineMasker::trackDocument(const char* line, size_t size, size_t length, bool lineStart, std::string& out,
                               MaskCounts& counts) {
    bool topLevel = lineStart && length > 0 && !isBlank(line[0]) && line[0] != '#';
    if (topLevel && startsWith(line, length, "---")) {
        if (holding) releaseHeld(KIND_OTHER, out, counts);
        kind = KIND_UNKNOWN;
        secretData = false;
    } else if (topLevel && startsWith(line, length, "kind:")) {
        size_t value = 5;
        while (value < length && isBlank(line[value])) ++value;
        Kind found = length - value == 6 && memcmp(line + value, "Secret", 6) == 0 ? KIND_SECRET : KIND_OTHER;
        if (holding) releaseHeld(found, out, counts);
        kind = found;
    } else if (topLevel && (isMappingHeader(line, length, "data:") || isMappingHeader(line, length, "stringData:"))) {
        secretData = kind == KIND_SECRET;
        if (kind == KIND_UNKNOWN && !holding) holding = true;
    } else if (topLevel) {
        secretData = false;
    }
    if (!holding) return false;
    held.append(line, size);
    if (held.size() > LONGEST_HELD_DATA) releaseHeld(KIND_SECRET, out, counts);
    return true;
}

void LineMasker::maskLine(const char* line, size_t size, std::string& out, MaskCounts& counts) {
    bool lineStart = !midLine;
    midLine = size == 0 || line[size - 1] != '\n';
    size_t length = size;
    while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r')) --length;
    if (trackDocument(line, size, length, lineStart, out, counts)) return;
    edits.clear();
    dropLine = false;
    size_t from = 0;
    if (lineStart) {
        if (continueOpen(line, length, from)) {
            if (!dropLine) edits.write(line, size, out, counts);
            return;
        }
        size_t indent = indentOf(line, length);
        if (startsWith(line + indent, length - indent, "machine ")) netrc = true;
    } else if (valueRunsOn) {
        while (from < length && !isBlank(line[from])) ++from;
        edits.add(line, 0, from, UNCOUNTED);
    }
    LineFacts facts;
    facts.lineStart = lineStart;
    facts.netrc = netrc;
    facts.secretData = secretData;
    Follow follow;
    scanLine(line, length, from, facts, edits, follow);
    valueRunsOn = midLine && length > 0 && edits.furthestEnd() == length;
    if (follow.kind == FOLLOW_KEY_BLOCK) {
        openKeyBlock(MASK_PRIVATE_KEY);
    } else if (follow.kind != FOLLOW_NONE) {
        open = follow;
    }
    edits.write(line, size, out, counts);
}

void LineMasker::finish(std::string& out, MaskCounts& counts) {
    if (holding) releaseHeld(KIND_OTHER, out, counts);
}

}  // namespace privacy
