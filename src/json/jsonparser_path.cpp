// Path access of JsonDocument: walking "a->b[n]->c" paths, inserting and removing nodes.
//
// The walks follow pointers into the tree and never copy a child list, so reading every
// element of a large array costs only the walk along the list to each index.
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "json/jsonparser.h"
#include "json/jsonparser_internal.h"

namespace {

using JsonNode = JsonDocument::JsonNode;
using NodeList = std::list<JsonNode*>;

// A path segment is read through a buffer of this size, so longer segments are cut.
constexpr size_t SEGMENT_SIZE = 256;

// One "->"-separated piece of a path: a name and an optional index part.
struct Segment {
    char text[SEGMENT_SIZE];
    std::string_view name;
    bool hasIndex = false;  // the segment holds a "["
    bool whole = false;     // "[]": the array itself
    size_t index = 0;       // [n]; a malformed index reads as 0
};

/// Cuts the next segment off `cursor` (advancing it past the "->"); false at the path's end.
bool nextSegment(const char*& cursor, Segment& segment) {
    if (*cursor == '\0') return false;
    const char* arrow = std::strstr(cursor, "->");
    size_t length = arrow ? static_cast<size_t>(arrow - cursor) : std::strlen(cursor);
    cursor += length + (arrow ? 2 : 0);

    size_t kept = length < SEGMENT_SIZE - 1 ? length : SEGMENT_SIZE - 1;
    std::memcpy(segment.text, cursor - length - (arrow ? 2 : 0), kept);
    segment.text[kept] = '\0';

    const char* open = std::strchr(segment.text, '[');
    segment.hasIndex = open != nullptr;
    segment.name = std::string_view(segment.text, open ? static_cast<size_t>(open - segment.text)
                                                        : kept);
    segment.whole = open && open[1] == ']';
    segment.index = 0;
    if (open && !segment.whole) {
        // Saturates instead of wrapping, so an absurd index is simply not found.
        for (const char* p = open + 1; *p >= '0' && *p <= '9'; ++p) {
            size_t digit = static_cast<size_t>(*p - '0');
            segment.index = segment.index > (SIZE_MAX - digit) / 10 ? SIZE_MAX
                                                                     : segment.index * 10 + digit;
        }
    }
    return true;
}

JsonNode* findChild(NodeList& list, std::string_view name) {
    for (JsonNode* child : list)
        if (child->getName() == name) return child;
    return nullptr;
}

/// Element n of an array's list, walking from the nearer end; null when n is out of range.
JsonNode* elementAt(NodeList& list, size_t n) {
    size_t count = list.size();
    if (n >= count) return nullptr;
    if (n <= count / 2) return *std::next(list.begin(), static_cast<std::ptrdiff_t>(n));
    return *std::prev(list.end(), static_cast<std::ptrdiff_t>(count - n));
}

// Where a walk ended: the node reached, and the container a new member would go into.
struct WalkResult {
    JsonNode* node = nullptr;
    JsonNode* container = nullptr;
};

/// Walks `path` from `root`. The current list, in which names are looked up, only moves
/// into objects: after a scalar or an array reached by name, the next name is looked up
/// among its siblings, which is how paths such as "status->status_message" are read.
WalkResult walk(JsonNode* root, const char* path) {
    WalkResult none;
    JsonNode* node = root;
    JsonNode* container = root;
    NodeList* list = &root->getNodeList();
    Segment segment;
    while (nextSegment(path, segment)) {
        if (!segment.name.empty()) {
            JsonNode* child = findChild(*list, segment.name);
            if (child == nullptr) return none;
            node = child;
            if (child->getType() == JSON_OBJECT) {
                list = &child->getNodeList();
                container = child;
            }
        } else if (!segment.hasIndex) {
            continue;  // empty segment from a leading or doubled "->"
        }
        if (!segment.hasIndex) continue;
        if (node->getType() != JSON_ARRAY) return none;
        if (segment.whole) return WalkResult{node, container};
        // An element is reached without becoming the container: a member added after an
        // indexed segment goes into the array, and removing "a[n]" erases from the array.
        container = node;
        list = &node->getNodeList();
        node = elementAt(*list, segment.index);
        if (node == nullptr) return none;
        if (node->getType() == JSON_OBJECT) list = &node->getNodeList();
    }
    return WalkResult{node, container};
}

}  // namespace

JsonDocument::JsonNode* JsonDocument::findNode(const char* path) {
    return jsonparser::guarded<JsonNode*>(__LINE__, nullptr, [&]() -> JsonNode* {
        if (!valid || rootList.empty() || path == nullptr) return nullptr;
        return walk(rootList.front(), path).node;
    });
}

JsonDocument::JsonNode* JsonDocument::findParentNode(const char* path) {
    return jsonparser::guarded<JsonNode*>(__LINE__, nullptr, [&]() -> JsonNode* {
        if (!valid || rootList.empty() || path == nullptr) return nullptr;
        if (std::strcmp(path, ".") == 0) return rootList.front();
        return walk(rootList.front(), path).container;
    });
}

JsonDocument::JsonNode* JsonDocument::insertNode(const char* path, json_type_t type) {
    return jsonparser::guarded<JsonNode*>(__LINE__, nullptr, [&]() -> JsonNode* {
        if (!valid || rootList.empty() || path == nullptr) return nullptr;
        const std::string whole(path);
        size_t arrow = whole.rfind("->");
        std::string parentPath = arrow == std::string::npos ? "." : whole.substr(0, arrow);
        std::string last = arrow == std::string::npos ? whole : whole.substr(arrow + 2);
        if (last.size() > SEGMENT_SIZE - 1) last.resize(SEGMENT_SIZE - 1);

        JsonNode* parent = nullptr;
        size_t open = last.find('[');
        if (open == std::string::npos) {
            parent = findParentNode(parentPath.c_str());
        } else {
            std::string arrayPath = last.substr(0, open);
            if (parentPath != ".") arrayPath = parentPath + "->" + arrayPath;
            parent = findNode(arrayPath.c_str());
        }
        if (parent == nullptr) return nullptr;

        auto node = std::make_unique<JsonNode>();
        if (type == JSON_OBJECT || type == JSON_ARRAY) {
            node->makeRootNode(last, type, parent->getType());
        } else {
            node->setName(last);
            node->setType(type);
        }
        // Elements are named by their position when they join an array, whatever index the
        // path gave, so that names and positions agree and removing "a[n]" removes one node.
        if (parent->getType() == JSON_ARRAY && node->isArrayElement())
            node->setName(std::to_string(parent->getNodeList().size()));
        parent->addNodeList(node.get());
        modified = true;
        return node.release();
    });
}

int JsonDocument::removeValue(const char* path) {
    return jsonparser::guarded<int>(__LINE__, -1, [&]() -> int {
        if (!valid) return -1;
        JsonNode* node = findNode(path);
        if (node == nullptr) return -1;
        JsonNode* container = findParentNode(path);
        if (container == nullptr) return -1;
        // Deliberately, for a path ending in an object the container is that object itself,
        // so its name is looked for among the object's own children.
        const std::string name = node->getName();
        int result = container->eraseNode(name.c_str());
        if (result == 0) modified = true;
        return result;
    });
}
