// JsonDocument::JsonNode: one value of the tree, its accessors, naming and child removal.
#include <cstdio>
#include <string>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "json/jsonparser.h"
#include "json/jsonparser_internal.h"

namespace jsonparser {

void reportException(unsigned line, const char* what) {
    logError(SOURCE, line, STATUS_ERROR, "%s: %s", _("exception caught"), what);
}

std::string trimmed(const std::string& text, const char* set) {
    size_t first = text.find_first_not_of(set);
    if (first == std::string::npos) return std::string();
    size_t last = text.find_last_not_of(set);
    return text.substr(first, last - first + 1);
}

}  // namespace jsonparser

namespace {
const std::string EMPTY_STRING;
}

JsonDocument::JsonNode::~JsonNode() {
    // The subtree is taken apart into a flat work list before anything is deleted, so each
    // node's own destructor finds an empty child list: freeing a tree nested thousands of
    // levels deep never recurses and cannot exhaust the stack.
    std::list<JsonNode*> pending;
    pending.splice(pending.end(), nodeList);
    while (!pending.empty()) {
        JsonNode* node = pending.front();
        pending.pop_front();
        pending.splice(pending.end(), node->nodeList);
        delete node;
    }
}

const std::string& JsonDocument::JsonNode::getString() const {
    return type == JSON_STRING ? string : EMPTY_STRING;
}

const std::string& JsonDocument::JsonNode::getUnescapedString() const {
    if (type != JSON_STRING) return EMPTY_STRING;
    return unescapedString.empty() ? string : unescapedString;
}

void JsonDocument::JsonNode::setBoolean(bool b) {
    type = JSON_BOOLEAN;
    boolean = b;
}

void JsonDocument::JsonNode::setNumberInteger(int32_t i) {
    type = JSON_INTEGER;
    integer = i;
}

void JsonDocument::JsonNode::setNumberDouble(double d, int32_t prec) {
    type = JSON_DOUBLE;
    number = d;
    if (prec != 0) precision = prec;
}

void JsonDocument::JsonNode::setNumberExponential(double d, int32_t prec) {
    type = JSON_EXPONENTIAL;
    number = d;
    if (prec != 0) precision = prec;
}

void JsonDocument::JsonNode::setNull() {
    type = JSON_NULL;
    boolean = false;
    integer = 0;
    number = 0.0;
    precision = 0;
    string.clear();
    unescapedString.clear();
}

void JsonDocument::JsonNode::setString(const std::string& s) {
    type = JSON_STRING;
    unescapedString = s;
    setEscapedString();
}

void JsonDocument::JsonNode::setName(const std::string& text) {
    size_t open = text.find('[');
    if (open == std::string::npos) {
        name = text;
        return;
    }
    size_t close = text.find(']', open + 1);
    name = text.substr(open + 1, close == std::string::npos ? std::string::npos : close - open - 1);
    arrayElement = true;
}

void JsonDocument::JsonNode::makeRootNode(const std::string& text, json_type_t t,
                                          json_type_t parentType) {
    size_t first = text.find_first_not_of('"');
    name = first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of('"') - first + 1);
    type = t;
    if (parentType == JSON_ARRAY) arrayElement = true;
}

int JsonDocument::JsonNode::eraseNode(const char* text) {
    if (nodeList.empty() || text == nullptr) return -1;
    // The name is copied first: the caller may pass the name of a child that is deleted here.
    const std::string wanted(text);
    int result = -1;
    unsigned position = 0;
    for (auto it = nodeList.begin(); it != nodeList.end(); ++it, ++position) {
        if ((*it)->name != wanted) continue;
        const bool element = (*it)->arrayElement;
        delete *it;
        it = nodeList.erase(it);
        result = 0;
        if (element) {
            // Later elements take their new positions as names so that indexes and names
            // stay in step; the walk ends with the renumbering.
            for (unsigned next = position; it != nodeList.end(); ++it, ++next)
                (*it)->name = std::to_string(next);
            break;
        }
        // A member directly after a deleted one is stepped over: only every other one of
        // several consecutive duplicates goes in one call; callers that clean up repeat the call,
        // and one that removes once must see the same document on every machine.
        if (it == nodeList.end()) break;
    }
    return result;
}
