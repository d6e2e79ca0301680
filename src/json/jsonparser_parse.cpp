// The JSON parser: a recursive splitter that cuts each container's text into items at
// top-level commas, splits items into name and value at their first colon, recurses into
// containers and classifies scalars by their first character. Its leniencies and
// strictnesses are part of the format: settings files and manifests already on customers'
// machines are read the same way by every version.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "json/jsonparser.h"
#include "json/jsonparser_internal.h"

namespace {

using JsonNode = JsonDocument::JsonNode;

// Containers nest at most this deep. Every level rescans the text of the levels inside it,
// so without a bound a document of a few thousand "[" would cost quadratic time and deep
// recursion; real documents nest a dozen levels. Deeper ones are rejected with a message.
constexpr unsigned MAX_DEPTH = 512;

bool isSpace(char c) {
    return c != '\0' && std::strchr(jsonparser::WHITESPACE, c) != nullptr;
}

// A piece of the caller's text; containers are parsed in place, never copied per level.
struct Span {
    const char* begin;
    const char* end;
    size_t size() const { return static_cast<size_t>(end - begin); }
    Span trimmed() const {
        Span s = *this;
        while (s.begin < s.end && isSpace(*s.begin)) ++s.begin;
        while (s.end > s.begin && isSpace(s.end[-1])) --s.end;
        return s;
    }
};

void processLevel(Span text, std::list<JsonNode*>& list, json_type_t parentType, unsigned depth);

/// An item holding a container: its optional name, then the container's own text.
void handleContainerItem(Span item, json_type_t type, std::list<JsonNode*>& list,
                         json_type_t parentType, unsigned depth) {
    item = item.trimmed();
    if (item.size() == 0) return;
    Span name{item.begin, item.begin};
    Span value = item;
    if (*item.begin != '{') {
        // Deliberately the first colon anywhere, also inside a nested container or string.
        const void* colon = std::memchr(item.begin, ':', item.size());
        if (colon != nullptr) {
            name = Span{item.begin, static_cast<const char*>(colon)}.trimmed();
            value = Span{static_cast<const char*>(colon) + 1, item.end}.trimmed();
        }
    }
    auto node = std::make_unique<JsonNode>();
    node->makeRootNode(std::string(name.begin, name.size()), type, parentType);
    list.push_back(node.get());
    JsonNode* added = node.release();
    processLevel(value, added->getNodeList(), type, depth + 1);
}

void handleScalarItem(Span item, std::list<JsonNode*>& list, json_type_t parentType,
                      unsigned& index) {
    const std::string text(item.begin, item.size());
    auto node = std::make_unique<JsonNode>();
    node->makeNode(text.c_str(), parentType, index);
    list.push_back(node.get());
    node.release();
}

void processLevel(Span text, std::list<JsonNode*>& list, json_type_t parentType, unsigned depth) {
    if (depth > MAX_DEPTH)
        throw std::runtime_error("JsonDocument::processEntity(): malformed document: nested deeper "
                                 "than " + std::to_string(MAX_DEPTH) + " levels");
    if (text.size() < 3) return;  // "{}" or "[]"
    bool inString = false;
    size_t nesting = 0;
    bool container = false;
    json_type_t containerType = JSON_NONE;
    unsigned index = 0;
    const char* itemStart = text.begin + 1;
    const char* last = text.end - 1;

    auto handle = [&](const char* itemEnd) {
        Span item{itemStart, itemEnd};
        if (item.size() == 0) return;
        if (container)
            handleContainerItem(item, containerType, list, parentType, depth);
        else
            handleScalarItem(item, list, parentType, index);
    };

    for (const char* p = text.begin + 1; p < last; ++p) {
        char c = *p;
        // A backslash does not protect a quote here: an escaped quote toggles the flag too.
        if (c == '"') {
            inString = !inString;
        } else if (inString) {
            continue;
        } else if (c == '{' || c == '[') {
            if (nesting == 0) {
                container = true;
                containerType = c == '{' ? JSON_OBJECT : JSON_ARRAY;
            }
            ++nesting;
        } else if (c == '}' || c == ']') {
            // Closers are not matched against openers; a stray one at the top is ignored.
            if (nesting > 0) --nesting;
        } else if (c == ',' && nesting == 0) {
            handle(p);
            itemStart = p + 1;
            container = false;
        }
    }
    handle(last);
}

}  // namespace

int JsonDocument::parse(const char* text, size_t /*length: the text ends at its NUL*/) {
    cleanup();
    if (text == nullptr) return -1;
    Span whole = Span{text, text + std::strlen(text)}.trimmed();
    if (whole.size() == 0) return -1;
    json_type_t type;
    if (*whole.begin == '{' && whole.end[-1] == '}')
        type = JSON_OBJECT;
    else if (*whole.begin == '[' && whole.end[-1] == ']')
        type = JSON_ARRAY;
    else
        return -1;
    auto root = std::make_unique<JsonNode>();
    root->makeRootNode(".", type, JSON_NONE);
    rootList.push_back(root.get());
    JsonNode* added = root.release();
    int result = processEntity(whole.begin, whole.size(), added->getNodeList(), type);
    if (result == 0) valid = true;
    return result;
}

int JsonDocument::processEntity(const char* text, size_t length, std::list<JsonNode*>& list,
                                json_type_t parentType) {
    if (text == nullptr) return 0;
    processLevel(Span{text, text + length}, list, parentType, 1);
    return 0;
}

int JsonDocument::JsonNode::makeNode(const char* item, json_type_t parentType,
                                     unsigned int& index) {
    const std::string text(item ? item : "");
    std::string value;
    if (parentType == JSON_ARRAY) {
        name = std::to_string(index++);
        arrayElement = true;
        value = jsonparser::trimmed(text, jsonparser::WHITESPACE);
    } else {
        size_t colon = text.find(':');
        if (colon == std::string::npos)
            throw std::runtime_error("JsonDocument::JsonNode::makeNode(): malformed document: "
                                     "missing a colon between the name/value pair");
        name = jsonparser::trimmed(text.substr(0, colon), jsonparser::WHITESPACE_AND_QUOTE);
        value = jsonparser::trimmed(text.substr(colon + 1), jsonparser::WHITESPACE);
    }

    // An empty value throws the string class's own out-of-range error here.
    const char first = value.at(0);
    if (first == 'f' || first == 't') {
        if (value != "true" && value != "false")
            throw std::runtime_error("JsonDocument::JsonNode::makeNode(): malformed document: "
                                     "value must be true or false for boolean");
        type = JSON_BOOLEAN;
        boolean = value == "true";
    } else if (first == 'n') {
        if (value != "null")
            throw std::runtime_error("JsonDocument::JsonNode::makeNode(): malformed document: "
                                     "value must be null");
        type = JSON_NULL;
    } else if (first == '"') {
        type = JSON_STRING;
        if (value.size() == 2) {
            string.clear();
        } else {
            string = value.substr(value.find_first_not_of('"') == std::string::npos
                                      ? value.size()
                                      : value.find_first_not_of('"'));
            if (!string.empty()) string.pop_back();  // the closing quote
        }
        setUnescapedString();
    } else {
        size_t dots = 0;
        for (char c : value) {
            if (std::strchr("+-0123456789eE.", c) == nullptr || (c == '.' && ++dots > 1))
                throw std::runtime_error("JsonDocument::JsonNode::makeNode(): malformed document: "
                                         "value must be a string in double quotes, or a number, "
                                         "or true or false or null");
        }
        size_t dot = value.find('.');
        size_t exponent = value.find_first_of("eE");
        if (exponent != std::string::npos) {
            type = JSON_EXPONENTIAL;
            number = std::strtod(value.c_str(), nullptr);
            // Without a "." before the exponent (1e5) there are no fraction digits to keep.
            precision = dot != std::string::npos && dot < exponent
                            ? static_cast<int32_t>(exponent - dot - 1)
                            : 0;
        } else if (dot != std::string::npos) {
            type = JSON_DOUBLE;
            number = std::strtod(value.c_str(), nullptr);
            precision = static_cast<int32_t>(value.size() - dot - 1);
        } else {
            type = JSON_INTEGER;
            integer = static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10));
        }
    }
    return 0;
}

unsigned int JsonDocument::JsonNode::convertHexToNum(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned int>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned int>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<unsigned int>(c - 'A' + 10);
    throw std::runtime_error(
        "JsonDocument::JsonNode::convertHexToNum(): invalid hexadecimal character encountered");
}

void JsonDocument::JsonNode::decodeUnicode(const std::string& in, size_t& pos, std::string& out) {
    // pos is at the "u"; the four digits follow it.
    if (in.size() - pos - 1 < 4)
        throw std::runtime_error("JsonDocument::JsonNode::setUnescapedString(): malformed string: "
                                 "expecting unicode character in the format \\u<four-hex-digits>");
    unsigned int value = 0;
    for (size_t i = 1; i <= 4; ++i) value = value * 16 + convertHexToNum(in[pos + i]);
    // Only values that fit one byte are turned into that byte; no UTF-8 is produced, and
    // anything larger stays as the escape it was written as.
    if (value <= 0xFF)
        out += static_cast<char>(value);
    else
        out.append(in, pos - 1, 6);
    pos += 4;
}

void JsonDocument::JsonNode::decodeControl(const std::string& in, size_t& pos, std::string& out) {
    // pos is at the "x"; the two digits follow it.
    if (in.size() - pos - 1 < 2)
        throw std::runtime_error("JsonDocument::JsonNode::setUnescapedString(): malformed string: "
                                 "expecting control character in the format \\x<two-hex-digits>");
    unsigned int value = convertHexToNum(in[pos + 1]) * 16 + convertHexToNum(in[pos + 2]);
    out += static_cast<char>(value);
    pos += 2;
}

void JsonDocument::JsonNode::setUnescapedString() {
    unescapedString.clear();
    try {
        for (size_t pos = 0; pos < string.size(); ++pos) {
            char c = string[pos];
            if (c != '\\') {
                unescapedString += c;
                continue;
            }
            if (pos + 1 >= string.size())
                throw std::runtime_error("JsonDocument::JsonNode::setUnescapedString(): malformed "
                                         "string: no further characters after a reverse solidus");
            switch (string[++pos]) {
                case '"': unescapedString += '"'; break;
                case '/': unescapedString += '/'; break;
                case 'b': unescapedString += '\b'; break;
                case 'f': unescapedString += '\f'; break;
                case 'n': unescapedString += '\n'; break;
                case 'r': unescapedString += '\r'; break;
                case 't': unescapedString += '\t'; break;
                case 'u': decodeUnicode(string, pos, unescapedString); break;
                case 'x': decodeControl(string, pos, unescapedString); break;
                // Any other escaped character, the backslash included, gives one backslash.
                default: unescapedString += '\\'; break;
            }
        }
    } catch (const std::exception& e) {
        // A bad escape never fails the document: the plain form stays as far as it got.
        jsonparser::reportException(__LINE__, e.what());
    }
}
