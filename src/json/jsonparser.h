// The program's own JSON document: a tree of nodes addressed by textual paths such as
// "products->orb->installed", "ftp_servers[%d]->url" or "[]" for an array itself.
// Exceptions are raised only inside this module and caught at its API boundary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <list>
#include <string>
#include <type_traits>

enum json_type_t : int32_t {
    JSON_NONE = 0,
    JSON_OBJECT = 1,
    JSON_ARRAY = 2,
    JSON_STRING = 3,
    JSON_INTEGER = 4,
    JSON_DOUBLE = 5,
    JSON_EXPONENTIAL = 6,
    JSON_BOOLEAN = 7,
    JSON_NULL = 8
};

enum json_format_t : int32_t {
    JSON_FORMAT_COMPACT = 0,
    JSON_FORMAT_PRETTY = 1
};

class JsonDocument {
public:
    class JsonNode {
    public:
        JsonNode() = default;
        JsonNode(const JsonNode&) = delete;
        JsonNode& operator=(const JsonNode&) = delete;
        virtual ~JsonNode();

        json_type_t getType() const { return type; }
        void setType(json_type_t t) { type = t; }
        const std::string& getName() const { return name; }
        /// "[n]" names the node n and marks it an array element; "a[]" gives the empty name.
        void setName(const std::string& text);
        std::list<JsonNode*>& getNodeList() { return nodeList; }
        bool isArrayElement() const { return arrayElement; }
        void addNodeList(JsonNode* node) { nodeList.push_back(node); }

        bool getBoolean() const { return type == JSON_BOOLEAN ? boolean : false; }
        int32_t getNumberInteger() const { return type == JSON_INTEGER ? integer : 0; }
        double getNumberDouble() const {
            return (type == JSON_DOUBLE || type == JSON_EXPONENTIAL) ? number : 0.0;
        }
        int32_t getNumberDoublePrecision() const { return precision; }
        /// The escaped (wire) form; "" unless a string.
        const std::string& getString() const;
        /// The plain form, or the escaped form when the plain one is empty; "" unless a string.
        const std::string& getUnescapedString() const;

        void setBoolean(bool b);
        void setNumberInteger(int32_t i);
        /// A precision of 0 keeps the node's current precision.
        void setNumberDouble(double d, int32_t prec);
        void setNumberExponential(double d, int32_t prec);
        /// Type null; clears every value field.
        void setNull();
        /// Stores the plain form and derives the escaped form.
        void setString(const std::string& s);

        /// Names a container: strips surrounding double quotes, marks array elements.
        void makeRootNode(const std::string& text, json_type_t t, json_type_t parentType);
        /// Fills a scalar from one item of its container's text; throws std::runtime_error.
        int makeNode(const char* item, json_type_t parentType, unsigned int& index);
        /// Removes and deletes the children named `text`; 0 when one went, else -1.
        int eraseNode(const char* text);

        /// Derives the plain form from the escaped form; reports its own errors.
        void setUnescapedString();
        /// Derives the escaped form from the plain form; reports its own errors.
        void setEscapedString();
        void decodeUnicode(const std::string& in, size_t& pos, std::string& out);
        void decodeControl(const std::string& in, size_t& pos, std::string& out);
        static unsigned int convertHexToNum(char c);
        static void encodeControl(unsigned int c, std::string& out);
        static void encodeUnicode(unsigned int c, std::string& out);

    private:
        json_type_t type = JSON_NONE;
        bool arrayElement = false;
        std::string name;
        bool boolean = false;
        int32_t integer = 0;
        double number = 0.0;
        int32_t precision = 0;
        std::string string;
        std::string unescapedString;
        std::list<JsonNode*> nodeList;
    };

    JsonDocument() = default;
    JsonDocument(const JsonDocument&) = delete;
    JsonDocument& operator=(const JsonDocument&) = delete;
    virtual ~JsonDocument();

    /// Deletes the whole tree and clears the modified and valid flags.
    void cleanup();
    bool isValid() const { return valid; }
    bool isModified() const { return modified; }

    /// An empty object (1) or array (2); 0, or -1 for any other type.
    int createDocument(json_type_t type);
    /// Reads and parses a file; 0, or -1 with the reason in the error log.
    int loadDocument(const char* path);
    /// Parses text up to its terminating NUL; 0, or -1.
    int loadDocument(const char* text, size_t length);

    /// The node at path ("" is the root); null when missing or the document is not valid.
    JsonNode* findNode(const char* path);
    /// The container a path's last segment goes into or is erased from: the holding object,
    /// the array for an indexed segment, the object itself for a path ending in an object,
    /// the root for "."; null when a segment is missing.
    JsonNode* findParentNode(const char* path);
    /// The node's type; JSON_NONE when missing.
    json_type_t getType(const char* path);
    /// The element count of an array ("list" or "list[]"); 0 for anything else.
    size_t getArraySize(const char* path);

    /// The value of a node of the matching type, else false, 0, 0.0 or "" (a static empty
    /// string for char*; a string's pointer stays valid until its node changes).
    template <typename T> T getValue(const char* path);
    /// Copies at most size-1 bytes of a string value into the zero-filled buffer.
    char* getValue(const char* path, char* buffer, size_t size);

    /// The buffer overload above, also reachable as getValue<char*>(path, buffer, size).
    template <typename T> T getValue(const char* path, char* buffer, size_t size) {
        static_assert(std::is_same<T, char*>::value, "only strings are copied into a buffer");
        return getValue(path, buffer, size);
    }

    /// Finds or inserts (never creating parents) the node and stores the value; 0, or -1
    /// when the document is not valid or the parent is missing. Nothing is logged.
    template <typename T> int setValue(const char* path, json_type_t type, T value);
    /// A double (type 5) or exponential (type 6) with precision; 0 keeps the node's own.
    int setValue(const char* path, json_type_t type, double value, int32_t prec);
    /// The precision overload above, also reachable as setValue<double>(path, type, d, prec).
    template <typename T> int setValue(const char* path, json_type_t type, T value, int32_t prec) {
        static_assert(std::is_arithmetic<T>::value, "a number with a precision");
        return setValue(path, type, static_cast<double>(value), prec);
    }

    /// Appends a node named by the path's last segment to its parent; null when the parent
    /// is missing. Elements joining an array are named by their position.
    JsonNode* insertNode(const char* path, json_type_t type);
    /// Removes the node and its subtree from the container findParentNode names; 0 or -1.
    int removeValue(const char* path);

    // Parser.
    /// Replaces the tree by the text's (up to its NUL); 0, -1 for a text that is not an
    /// object or array; throws std::runtime_error on a malformed item (callers catch).
    int parse(const char* text, size_t length);
    /// Parses one container's text, brackets included, into list; 0; throws like parse.
    int processEntity(const char* text, size_t length, std::list<JsonNode*>& list,
                      json_type_t parentType);

    // Writer.
    /// Writes a valid document compact (0) or pretty (1); nothing otherwise.
    void serialize(json_format_t format, FILE* stream);
    void serializeEntity(json_format_t format, FILE* stream, int depth,
                         std::list<JsonNode*>& list);
    /// 0, or -1 when the document is not valid.
    int writeDocument(json_format_t format, FILE* stream);
    /// Leaves the text in the zero-filled buffer, which must be longer than the text; 0, or -1
    /// (logged) when /dev/null cannot be opened or the buffer installed.
    int writeDocument(json_format_t format, char* buffer, size_t size);
    /// Creates or truncates the file and clears `modified`; 0, or -1 (logged when the file
    /// cannot be opened).
    int writeDocument(json_format_t format, const char* path);
    /// A debugging tree, one node per line.
    void dump(FILE* stream);
    void dumpEntity(FILE* stream, int depth, std::list<JsonNode*>& list);

private:
    /// The body shared by every setValue: finds or inserts the node at path, hands it to
    /// store(node, inserted), marks the document modified; 0 or -1.
    template <typename Store> int storeValue(const char* path, json_type_t type, Store store);

    bool modified = false;
    bool valid = false;
    std::list<JsonNode*> rootList;
};

template <> bool JsonDocument::getValue<bool>(const char* path);
template <> int JsonDocument::getValue<int>(const char* path);
template <> double JsonDocument::getValue<double>(const char* path);
template <> char* JsonDocument::getValue<char*>(const char* path);

template <> int JsonDocument::setValue<bool>(const char* path, json_type_t type, bool value);
template <> int JsonDocument::setValue<int>(const char* path, json_type_t type, int value);
template <> int JsonDocument::setValue<double>(const char* path, json_type_t type, double value);
template <> int JsonDocument::setValue<char const*>(const char* path, json_type_t type,
                                                   char const* value);
template <> int JsonDocument::setValue<char*>(const char* path, json_type_t type, char* value);
template <> int JsonDocument::setValue<void*>(const char* path, json_type_t type, void* value);
