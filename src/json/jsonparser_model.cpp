// JsonDocument: its lifetime, loading, and the typed getters and setters over paths.
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <sys/stat.h>

#include "frame/file.h"
#include "frame/logging.h"
#include "json/jsonparser.h"
#include "json/jsonparser_internal.h"

using jsonparser::guarded;

using JsonNode = JsonDocument::JsonNode;

JsonDocument::~JsonDocument() {
    cleanup();
}

void JsonDocument::cleanup() {
    for (JsonNode* node : rootList) delete node;
    rootList.clear();
    modified = false;
    valid = false;
}

int JsonDocument::createDocument(json_type_t type) {
    const char* text = type == JSON_OBJECT ? "{}" : type == JSON_ARRAY ? "[]" : nullptr;
    if (text == nullptr) return -1;
    int result = loadDocument(text, 2);
    if (result == 0) modified = true;
    return result;
}

int JsonDocument::loadDocument(const char* path) {
    return guarded<int>(__LINE__, -1, [&]() -> int {
        cleanup();
        if (path == nullptr) return -1;
        File file(path, "rb");
        if (file.get() == nullptr) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "fopen on %s failed: %s\n", path,
                     std::strerror(errno));
            return -1;
        }
        // A folder opens and seeks like a file but reports an absurd size; it is refused as
        // the read would be, before any buffer is sized from it.
        struct stat status;
        if (fstat(fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "fread on file %s failed: %s",
                     path, std::strerror(EISDIR));
            return -1;
        }
        long size = -1;
        if (std::fseek(file.get(), 0, SEEK_END) == 0) size = std::ftell(file.get());
        if (size < 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "fread on file %s failed: %s",
                     path, std::strerror(errno));
            return -1;
        }
        std::unique_ptr<char[]> text(new (std::nothrow) char[static_cast<size_t>(size) + 1]());
        if (!text) return -1;
        errno = 0;
        size_t got = std::fread(text.get(), 1, static_cast<size_t>(size), file.get());
        if (got < static_cast<size_t>(size) || std::ferror(file.get())) {
            logError(jsonparser::SOURCE, __LINE__, STATUS_ERROR, "fread on file %s failed: %s",
                     path, std::strerror(errno));
            return -1;
        }
        file.close();
        return parse(text.get(), static_cast<size_t>(size));
    });
}

int JsonDocument::loadDocument(const char* text, size_t length) {
    return guarded<int>(__LINE__, -1, [&]() { return parse(text, length); });
}

json_type_t JsonDocument::getType(const char* path) {
    return guarded<json_type_t>(__LINE__, JSON_NONE, [&]() {
        JsonNode* node = findNode(path);
        return node ? node->getType() : JSON_NONE;
    });
}

size_t JsonDocument::getArraySize(const char* path) {
    return guarded<size_t>(__LINE__, 0, [&]() -> size_t {
        JsonNode* node = findNode(path);
        return node && node->getType() == JSON_ARRAY ? node->getNodeList().size() : 0;
    });
}

template <>
bool JsonDocument::getValue<bool>(const char* path) {
    return guarded<bool>(__LINE__, false, [&]() {
        JsonNode* node = findNode(path);
        return node ? node->getBoolean() : false;
    });
}

template <>
int JsonDocument::getValue<int>(const char* path) {
    return guarded<int>(__LINE__, 0, [&]() {
        JsonNode* node = findNode(path);
        return node ? node->getNumberInteger() : 0;
    });
}

template <>
double JsonDocument::getValue<double>(const char* path) {
    return guarded<double>(__LINE__, 0.0, [&]() {
        JsonNode* node = findNode(path);
        return node ? node->getNumberDouble() : 0.0;
    });
}

template <>
char* JsonDocument::getValue<char*>(const char* path) {
    // Callers get a writable pointer by the interface's design; the shared empty answer is
    // made empty again on every call in case one of them wrote into it.
    static char empty[1];
    empty[0] = '\0';
    return guarded<char*>(__LINE__, empty, [&]() -> char* {
        JsonNode* node = findNode(path);
        if (node == nullptr || node->getType() != JSON_STRING) return empty;
        return const_cast<char*>(node->getUnescapedString().c_str());
    });
}

char* JsonDocument::getValue(const char* path, char* buffer, size_t size) {
    if (buffer == nullptr || size == 0) return buffer;
    std::memset(buffer, 0, size);
    return guarded<char*>(__LINE__, buffer, [&]() -> char* {
        JsonNode* node = findNode(path);
        if (node == nullptr || node->getType() != JSON_STRING) return buffer;
        const std::string& text = node->getUnescapedString();
        std::memcpy(buffer, text.data(), text.size() < size - 1 ? text.size() : size - 1);
        return buffer;
    });
}

template <typename Store>
int JsonDocument::storeValue(const char* path, json_type_t type, Store store) {
    return guarded<int>(__LINE__, -1, [&]() -> int {
        if (!valid) return -1;
        bool inserted = false;
        JsonNode* node = findNode(path);
        if (node == nullptr) {
            node = insertNode(path, type);
            if (node == nullptr) return -1;
            inserted = true;
        }
        store(node, inserted);
        modified = true;
        return 0;
    });
}

template <>
int JsonDocument::setValue<bool>(const char* path, json_type_t type, bool value) {
    return storeValue(path, type, [&](JsonNode* node, bool) { node->setBoolean(value); });
}

template <>
int JsonDocument::setValue<int>(const char* path, json_type_t type, int value) {
    return storeValue(path, type, [&](JsonNode* node, bool) { node->setNumberInteger(value); });
}

template <>
int JsonDocument::setValue<double>(const char* path, json_type_t type, double value) {
    return storeValue(path, type, [&](JsonNode* node, bool inserted) {
        // A new node gets the usual number of digits; an existing one keeps its own. Any
        // type but these two stores nothing.
        if (type == JSON_DOUBLE) node->setNumberDouble(value, inserted ? 4 : 0);
        if (type == JSON_EXPONENTIAL) node->setNumberExponential(value, inserted ? 8 : 0);
    });
}

int JsonDocument::setValue(const char* path, json_type_t type, double value, int32_t prec) {
    return storeValue(path, type, [&](JsonNode* node, bool) {
        if (type == JSON_DOUBLE) node->setNumberDouble(value, prec);
        if (type == JSON_EXPONENTIAL) node->setNumberExponential(value, prec);
    });
}

template <>
int JsonDocument::setValue<char const*>(const char* path, json_type_t type, char const* value) {
    return storeValue(path, type,
                      [&](JsonNode* node, bool) { node->setString(value ? value : ""); });
}

template <>
int JsonDocument::setValue<char*>(const char* path, json_type_t type, char* value) {
    return setValue<char const*>(path, type, value);
}

template <>
int JsonDocument::setValue<void*>(const char* path, json_type_t type, void* /*unused*/) {
    return storeValue(path, type, [&](JsonNode* node, bool) {
        // An object or array found at the path is kept with its content.
        if (type == JSON_NULL) node->setNull();
    });
}
