// The JSON writer: compact and pretty text to a stream, a caller's buffer or a file, the
// debug dump, and the escaping that gives a string node its wire form.
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "frame/file.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "json/jsonparser.h"
#include "json/jsonparser_internal.h"

using jsonparser::guarded;

namespace {

/// Four spaces per depth; nothing at depth 0.
void indent(FILE* stream, int depth) {
    std::fprintf(stream, "%*.*s", 4 * depth, 4 * depth, " ");
}

}  // namespace

void JsonDocument::serialize(json_format_t format, FILE* stream) {
    if (!valid || stream == nullptr) return;
    serializeEntity(format, stream, 0, rootList);
}

void JsonDocument::serializeEntity(json_format_t format, FILE* stream, int depth,
                                   std::list<JsonNode*>& list) {
    const bool pretty = format == JSON_FORMAT_PRETTY;
    size_t n = 0;
    const size_t count = list.size();
    for (JsonNode* node : list) {
        ++n;
        if (depth != 0 && !node->isArrayElement()) {
            if (pretty) indent(stream, depth);
            if (!node->getName().empty()) {
                std::fprintf(stream, "\"%s\":", node->getName().c_str());
                if (pretty) std::fputc(' ', stream);
            }
        }
        switch (node->getType()) {
            case JSON_OBJECT:
                std::fputc('{', stream);
                if (pretty) std::fputc('\n', stream);
                serializeEntity(format, stream, depth + 1, node->getNodeList());
                if (pretty && depth > 0) indent(stream, depth);
                std::fputc('}', stream);
                break;
            case JSON_ARRAY:
                // Elements stay at the array's own depth: they share its line.
                std::fputc('[', stream);
                serializeEntity(format, stream, depth, node->getNodeList());
                std::fputc(']', stream);
                break;
            case JSON_STRING:
                std::fprintf(stream, "\"%s\"", node->getString().c_str());
                break;
            case JSON_INTEGER:
                std::fprintf(stream, "%d", node->getNumberInteger());
                break;
            case JSON_DOUBLE:
                std::fprintf(stream, "%0.*f", node->getNumberDoublePrecision(),
                             node->getNumberDouble());
                break;
            case JSON_EXPONENTIAL:
                std::fprintf(stream, "%0.*e", node->getNumberDoublePrecision(),
                             node->getNumberDouble());
                break;
            case JSON_BOOLEAN:
                std::fputs(node->getBoolean() ? "true" : "false", stream);
                break;
            case JSON_NULL:
                std::fputs("null", stream);
                break;
            default:
                break;
        }
        if (n < count) std::fputc(',', stream);
        if (pretty) {
            if (!node->isArrayElement())
                std::fputc('\n', stream);
            else if (n < count)
                std::fputc(' ', stream);
        }
    }
}

int JsonDocument::writeDocument(json_format_t format, FILE* stream) {
    if (!valid || stream == nullptr) return -1;
    return guarded<int>(__LINE__, -1, [&]() {
        serialize(format, stream);
        return 0;
    });
}

int JsonDocument::writeDocument(json_format_t format, char* buffer, size_t size) {
    if (!valid || buffer == nullptr) return -1;
    std::memset(buffer, 0, size);
    return guarded<int>(__LINE__, -1, [&]() -> int {
        // The text is serialized through the ordinary stream code into the caller's buffer,
        // installed as the stream's own buffer; the bytes flushed go to the null device. The
        // text must be shorter than the buffer, as callers size their requests.
        File null("/dev/null", "wb");
        if (null.get() == nullptr) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "fopen on %s failed: %s",
                     "/dev/null", std::strerror(errno));
            return -1;
        }
        if (std::setvbuf(null.get(), buffer, _IOFBF, size) != 0) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "call to %s failed: %lu\n",
                     "setvbuf()", static_cast<unsigned long>(errno));
            return -1;
        }
        serialize(format, null.get());
        std::fflush(null.get());
        null.close();
        return 0;
    });
}

int JsonDocument::writeDocument(json_format_t format, const char* path) {
    if (!valid || path == nullptr) return -1;
    return guarded<int>(__LINE__, -1, [&]() -> int {
        File file(path, "wb");
        if (file.get() == nullptr) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "fopen on %s failed: %s", path,
                     std::strerror(errno));
            return -1;
        }
        serialize(format, file.get());
        std::fflush(file.get());
        file.close();
        modified = false;
        return 0;
    });
}

void JsonDocument::dump(FILE* stream) {
    if (!valid || stream == nullptr) return;
    guarded<int>(__LINE__, -1, [&]() {
        dumpEntity(stream, 0, rootList);
        return 0;
    });
}

void JsonDocument::dumpEntity(FILE* stream, int depth, std::list<JsonNode*>& list) {
    const int width = 4 * depth;
    for (JsonNode* node : list) {
        const char* name = node->getName().c_str();
        const json_type_t type = node->getType();
        if (type == JSON_OBJECT || type == JSON_ARRAY) {
            const bool object = type == JSON_OBJECT;
            const char* word = object ? _("Object") : _("Array");
            if (depth == 0)
                std::fprintf(stream, object ? "%*.*s%s {\n" : "%*.*s%s (\n", width, width, " ",
                             word);
            else
                std::fprintf(stream, object ? "%*.*s[%s] => %s {\n" : "%*.*s[%s] => %s (\n",
                             width, width, " ", name, word);
            dumpEntity(stream, depth + 1, node->getNodeList());
            std::fprintf(stream, object ? "%*.*s}\n" : "%*.*s)\n", width, width, " ");
            continue;
        }
        switch (type) {
            case JSON_INTEGER:
                std::fprintf(stream, "%*.*s[%s] => %d\n", width, width, " ", name,
                             node->getNumberInteger());
                break;
            case JSON_DOUBLE:
                std::fprintf(stream, "%*.*s[%s] => %0.*f\n", width, width, " ", name,
                             node->getNumberDoublePrecision(), node->getNumberDouble());
                break;
            case JSON_EXPONENTIAL:
                std::fprintf(stream, "%*.*s[%s] => %0.*e\n", width, width, " ", name,
                             node->getNumberDoublePrecision(), node->getNumberDouble());
                break;
            default: {
                const char* text = type == JSON_STRING    ? node->getString().c_str()
                                   : type == JSON_BOOLEAN ? (node->getBoolean() ? "true" : "false")
                                   : type == JSON_NULL    ? "null"
                                                          : "";
                std::fprintf(stream, "%*.*s[%s] => %s\n", width, width, " ", name, text);
                break;
            }
        }
    }
}

void JsonDocument::JsonNode::encodeControl(unsigned int c, std::string& out) {
    char text[16];
    std::snprintf(text, sizeof text, "\\x%.2x", c);
    out += text;
}

void JsonDocument::JsonNode::encodeUnicode(unsigned int c, std::string& out) {
    char text[16];
    std::snprintf(text, sizeof text, "\\u%.4x", c);
    out += text;
}

void JsonDocument::JsonNode::setEscapedString() {
    string.clear();
    try {
        for (char c : unescapedString) {
            switch (c) {
                case '\b': string += "\\b"; break;
                case '\t': string += "\\t"; break;
                case '\n': string += "\\n"; break;
                case '\f': string += "\\f"; break;
                case '\r': string += "\\r"; break;
                case '"': string += "\\\""; break;
                case '\\': string += "\\\\"; break;
                default:
                    if (c >= 32 && c <= 126) {
                        string += c;
                    } else {
                        // Deliberately sign-extended: bytes from 128 up are written with
                        // eight hex digits (0xE9 gives \xffffffe9): the readers of these
                        // files parse that form, and a second form would need both.
                        encodeControl(static_cast<unsigned int>(static_cast<int>(
                                          static_cast<signed char>(c))),
                                      string);
                    }
                    break;
            }
        }
    } catch (const std::exception& e) {
        jsonparser::reportException(__LINE__, e.what());
    }
}
