// The JSON document model: nodes, paths, typed getters and setters, insertion and removal.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "json/jsonparser.h"
#include "json_test_support.h"

using jsontest::load;
using jsontest::written;
using JsonNode = JsonDocument::JsonNode;

namespace {

const char* kFixture = R"({
    "ftp_servers": [{"url": "ftp://one", "port": 21}, {"url": "ftp://two", "port": 990}],
    "status": 0,
    "status_message": "broken",
    "a": "text",
    "b": 2,
    "obj": {"inner": {"deep": true}, "pi": 3.14},
    "list": [1, 2, 3],
    "grid": [[1, 2], [3, 4]]
})";

class JsonPathFixture : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, load(doc, kFixture)); }
    JsonDocument doc;
};

TEST(JsonNode, NewNodeIsEmpty) {
    JsonNode node;
    EXPECT_EQ(JSON_NONE, node.getType());
    EXPECT_FALSE(node.isArrayElement());
    EXPECT_EQ("", node.getName());
    EXPECT_FALSE(node.getBoolean());
    EXPECT_EQ(0, node.getNumberInteger());
    EXPECT_EQ(0.0, node.getNumberDouble());
    EXPECT_EQ(0, node.getNumberDoublePrecision());
    EXPECT_EQ("", node.getString());
    EXPECT_TRUE(node.getNodeList().empty());
}

TEST(JsonNode, GettersAnswerOnlyForTheirOwnType) {
    JsonNode node;
    node.setNumberInteger(7);
    EXPECT_EQ(7, node.getNumberInteger());
    node.setBoolean(true);
    EXPECT_TRUE(node.getBoolean());
    EXPECT_EQ(0, node.getNumberInteger()) << "an integer read from a boolean";
    node.setNumberDouble(1.5, 2);
    EXPECT_FALSE(node.getBoolean());
    EXPECT_EQ(1.5, node.getNumberDouble());
    node.setNumberExponential(2.5, 0);
    EXPECT_EQ(JSON_EXPONENTIAL, node.getType());
    EXPECT_EQ(2, node.getNumberDoublePrecision()) << "a precision of 0 keeps the old one";
    EXPECT_EQ("", node.getString());
    EXPECT_EQ("", node.getUnescapedString());
}

TEST(JsonNode, SetNullClearsEveryValue) {
    JsonNode node;
    node.setString("x");
    node.setNumberDouble(3.5, 3);
    node.setNull();
    EXPECT_EQ(JSON_NULL, node.getType());
    EXPECT_EQ(0, node.getNumberDoublePrecision());
    node.setType(JSON_STRING);
    EXPECT_EQ("", node.getString()) << "the strings are cleared too";
    node.setType(JSON_DOUBLE);
    EXPECT_EQ(0.0, node.getNumberDouble());
}

TEST(JsonNode, UnescapedStringFallsBackToEscapedForm) {
    JsonNode node;
    node.setString("a\tb");
    EXPECT_EQ("a\\tb", node.getString());
    EXPECT_EQ("a\tb", node.getUnescapedString());
    JsonNode empty;
    empty.setString("");
    EXPECT_EQ("", empty.getUnescapedString());
}

TEST(JsonNode, SetNameTakesTheIndexPartAsTheName) {
    struct Case {
        const char* text;
        const char* name;
        bool element;
    };
    const Case cases[] = {
        {"plain", "plain", false},   {"[3]", "3", true},       {"volumes[]", "", true},
        {"a[12]b[4]", "12", true},   {"a[7", "7", true},       {"", "", false},
    };
    for (const auto& c : cases) {
        JsonNode node;
        node.setName(c.text);
        EXPECT_EQ(c.name, node.getName()) << c.text;
        EXPECT_EQ(c.element, node.isArrayElement()) << c.text;
    }
}

TEST(JsonNode, MakeRootNodeStripsQuotesAndMarksArrayElements) {
    JsonNode node;
    node.makeRootNode("\"\"name \"\"", JSON_OBJECT, JSON_OBJECT);
    EXPECT_EQ("name ", node.getName());
    EXPECT_EQ(JSON_OBJECT, node.getType());
    EXPECT_FALSE(node.isArrayElement());
    JsonNode element;
    element.makeRootNode("\"\"", JSON_ARRAY, JSON_ARRAY);
    EXPECT_EQ("", element.getName());
    EXPECT_TRUE(element.isArrayElement());
}

TEST(JsonNode, DeletingAVeryDeepTreeDoesNotRecurse) {
    // Half a million levels would overflow the stack of a recursive destructor.
    auto* root = new JsonNode;
    JsonNode* node = root;
    for (int i = 0; i < 500000; ++i) {
        auto* child = new JsonNode;
        child->setType(JSON_ARRAY);
        node->addNodeList(child);
        node = child;
    }
    delete root;
    SUCCEED();
}

TEST(JsonNode, EraseNodeStepsOverADirectlyFollowingDuplicate) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":1,"a":2,"b":3,"a":4})"));
    JsonNode* root = doc.findParentNode(".");
    EXPECT_EQ(0, root->eraseNode("a"));
    EXPECT_EQ(R"({"a":2,"b":3})", written(doc)) << "the second a follows the first and stays";
    EXPECT_EQ(0, root->eraseNode("a"));
    EXPECT_EQ(R"({"b":3})", written(doc));
    EXPECT_EQ(-1, root->eraseNode("a"));
    EXPECT_EQ(0, root->eraseNode("b"));
    EXPECT_EQ(-1, root->eraseNode("b")) << "an empty list";
}

TEST(JsonNode, EraseNodeRenumbersLaterArrayElements) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, "[10,20,30,40]"));
    JsonNode* root = doc.findParentNode(".");
    EXPECT_EQ(0, root->eraseNode("1"));
    EXPECT_EQ("[10,30,40]", written(doc));
    std::string names;
    for (JsonNode* n : root->getNodeList()) names += n->getName() + ",";
    EXPECT_EQ("0,1,2,", names);
    EXPECT_EQ(30, doc.getValue<int>("[1]"));
}

TEST(JsonDocumentCreate, ObjectAndArrayOnlyAndMarkedModified) {
    JsonDocument doc;
    EXPECT_EQ(0, doc.createDocument(JSON_OBJECT));
    EXPECT_TRUE(doc.isValid());
    EXPECT_TRUE(doc.isModified());
    EXPECT_EQ("{}", written(doc));
    EXPECT_EQ(0, doc.createDocument(JSON_ARRAY));
    EXPECT_EQ("[]", written(doc));

    JsonDocument other;
    EXPECT_EQ(-1, other.createDocument(JSON_STRING));
    EXPECT_FALSE(other.isValid());
    EXPECT_EQ(-1, other.createDocument(JSON_NONE));
}

TEST(JsonDocumentCreate, CleanupDropsTreeAndFlags) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    doc.cleanup();
    EXPECT_FALSE(doc.isValid());
    EXPECT_FALSE(doc.isModified());
    EXPECT_EQ(nullptr, doc.findNode(""));
}

TEST_F(JsonPathFixture, PathsReachTheirNodes) {
    struct Case {
        const char* path;
        json_type_t type;
    };
    const Case cases[] = {
        {"", JSON_OBJECT},                  // all segments skipped: the root
        {".", JSON_NONE},                   // no child is named "."
        {"status", JSON_INTEGER},
        {"a->b", JSON_INTEGER},             // after a scalar, names are its siblings
        {"status->status_message", JSON_STRING},
        {"obj->inner->deep", JSON_BOOLEAN},
        {"->obj->->inner->deep->", JSON_BOOLEAN},  // empty segments are skipped
        {"OBJ", JSON_NONE},                 // names are case-sensitive
        {"obj->missing", JSON_NONE},
        {"ftp_servers", JSON_ARRAY},
        {"ftp_servers[]", JSON_ARRAY},
        {"ftp_servers[]->whatever->follows", JSON_ARRAY},  // "[]" ends the walk
        {"ftp_servers[1]", JSON_OBJECT},
        {"ftp_servers[1]->url", JSON_STRING},
        {"ftp_servers[2]", JSON_NONE},      // index equal to the count
        {"ftp_servers[99999999999999999999999]", JSON_NONE},
        {"ftp_servers[x]->port", JSON_INTEGER},  // a malformed index reads as 0
        {"list[1][2]", JSON_INTEGER},       // only the first "[" counts
        {"status[0]", JSON_NONE},           // an index on a scalar
        {"[0]", JSON_NONE},                 // the root is no array
        {"grid[1]->[0]", JSON_INTEGER},     // an index applied to the current array
        {"list->[2]", JSON_INTEGER},
    };
    for (const auto& c : cases) EXPECT_EQ(c.type, doc.getType(c.path)) << c.path;
    EXPECT_EQ(3, doc.getValue<int>("grid[1]->[0]"));
    EXPECT_EQ(990, doc.getValue<int>("ftp_servers[1]->port"));
    EXPECT_EQ(21, doc.getValue<int>("ftp_servers[x]->port"));
    EXPECT_STREQ("broken", doc.getValue<char*>("status->status_message"));
}

TEST_F(JsonPathFixture, ArraySizesCountElementsOfArraysOnly) {
    EXPECT_EQ(2u, doc.getArraySize("ftp_servers[]"));
    EXPECT_EQ(2u, doc.getArraySize("ftp_servers"));
    EXPECT_EQ(3u, doc.getArraySize("list"));
    EXPECT_EQ(2u, doc.getArraySize("grid[0]"));
    EXPECT_EQ(0u, doc.getArraySize("obj"));
    EXPECT_EQ(0u, doc.getArraySize("missing[]"));
}

TEST_F(JsonPathFixture, ParentNodeIsTheHoldingObjectOrTheObjectItself) {
    JsonNode* root = doc.findNode("");
    EXPECT_EQ(root, doc.findParentNode("."));
    EXPECT_EQ(root, doc.findParentNode("status"));
    EXPECT_EQ(root, doc.findParentNode("list"));
    EXPECT_EQ(doc.findNode("obj"), doc.findParentNode("obj")) << "a path ending in an object";
    EXPECT_EQ(doc.findNode("obj"), doc.findParentNode("obj->pi"));
    EXPECT_EQ(doc.findNode("obj->inner"), doc.findParentNode("obj->inner->deep"));
    EXPECT_EQ(doc.findNode("ftp_servers"), doc.findParentNode("ftp_servers[1]"));
    EXPECT_EQ(doc.findNode("ftp_servers"), doc.findParentNode("ftp_servers[1]->url"));
    EXPECT_EQ(root, doc.findParentNode("ftp_servers[]"));
    EXPECT_EQ(nullptr, doc.findParentNode("missing"));
    EXPECT_EQ(nullptr, doc.findParentNode("ftp_servers[5]"));
}

TEST(JsonDocumentPaths, ArrayRootReachesNestedArrays) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"([{"volumes":[1]},{"volumes":[1,2]},{"volumes":[1,2,3],
        "schedule":{"rules":[{"offsets":{"days":[5,6,7]}}]}}])"));
    EXPECT_EQ(JSON_ARRAY, doc.getType("[2]->volumes[]"));
    EXPECT_EQ(3u, doc.getArraySize("[2]->volumes[]"));
    EXPECT_EQ(2u, doc.getArraySize("[1]->volumes[]"));
    EXPECT_EQ(7, doc.getValue<int>("[2]->schedule->rules[0]->offsets->days[2]"));
    EXPECT_EQ(0, doc.getValue<int>("[2]->schedule->rules[0]->offsets->days[3]"));
    EXPECT_EQ(3u, doc.getArraySize("[]"));
}

TEST(JsonDocumentPaths, OverlongSegmentsAreCutTo255Characters) {
    const std::string name255(255, 'n');
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, "{\"" + name255 + "\":1,\"" + std::string(300, 'm') + "\":2}"));
    EXPECT_EQ(1, doc.getValue<int>(name255.c_str()));
    EXPECT_EQ(1, doc.getValue<int>((name255 + "extra").c_str()));
    EXPECT_EQ(0, doc.getValue<int>(std::string(300, 'm').c_str()));
}

TEST_F(JsonPathFixture, TypedGettersTreatAWrongTypeAsMissing) {
    EXPECT_EQ(0, doc.getValue<int>("a"));
    EXPECT_FALSE(doc.getValue<bool>("b"));
    EXPECT_EQ(0.0, doc.getValue<double>("b"));
    EXPECT_DOUBLE_EQ(3.14, doc.getValue<double>("obj->pi"));
    EXPECT_TRUE(doc.getValue<bool>("obj->inner->deep"));
    EXPECT_STREQ("", doc.getValue<char*>("b"));
    EXPECT_STREQ("", doc.getValue<char*>("missing"));
    EXPECT_STREQ("text", doc.getValue<char*>("a"));
}

TEST_F(JsonPathFixture, StringIntoBufferIsCutAndZeroFilled) {
    char buffer[8];
    struct Case {
        const char* path;
        size_t size;
        const char* want;
    };
    const Case cases[] = {
        {"a", 8, "text"}, {"a", 3, "te"}, {"a", 1, ""}, {"b", 8, ""}, {"missing", 8, ""},
        {"status_message", 8, "broken"},
    };
    for (const auto& c : cases) {
        std::memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(buffer, doc.getValue(c.path, buffer, c.size)) << c.path << c.size;
        EXPECT_STREQ(c.want, buffer) << c.path << " " << c.size;
        for (size_t i = std::strlen(c.want); i < c.size; ++i)
            EXPECT_EQ('\0', buffer[i]) << c.path << " byte " << i;
    }
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_STREQ("text", doc.getValue<char*>("a", buffer, sizeof buffer));
}

TEST(JsonDocumentInvalid, EveryCallAnswersItsFailureValue) {
    jsontest::ErrorLog log;
    JsonDocument doc;
    ASSERT_EQ(-1, load(doc, "{\"a\":1,\"b\":nil}"));
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(nullptr, doc.findNode(""));
    EXPECT_EQ(nullptr, doc.findNode("a"));
    EXPECT_EQ(nullptr, doc.findParentNode("."));
    EXPECT_EQ(JSON_NONE, doc.getType("a"));
    EXPECT_EQ(0u, doc.getArraySize("[]"));
    EXPECT_EQ(0, doc.getValue<int>("a"));
    EXPECT_FALSE(doc.getValue<bool>("a"));
    EXPECT_EQ(0.0, doc.getValue<double>("a"));
    EXPECT_STREQ("", doc.getValue<char*>("a"));
    EXPECT_STREQ("", doc.getValue("a", buffer, sizeof buffer));
    EXPECT_EQ(-1, doc.setValue<int>("c", JSON_INTEGER, 1));
    EXPECT_EQ(-1, doc.setValue<bool>("c", JSON_BOOLEAN, true));
    EXPECT_EQ(-1, doc.setValue<double>("c", JSON_DOUBLE, 1.0));
    EXPECT_EQ(-1, doc.setValue("c", JSON_DOUBLE, 1.0, 2));
    EXPECT_EQ(-1, doc.setValue<char const*>("c", JSON_STRING, "x"));
    EXPECT_EQ(-1, doc.setValue<void*>("c", JSON_OBJECT, nullptr));
    EXPECT_EQ(nullptr, doc.insertNode("c", JSON_INTEGER));
    EXPECT_EQ(-1, doc.removeValue("a"));
    EXPECT_EQ(-1, doc.writeDocument(JSON_FORMAT_COMPACT, stdout));
    EXPECT_FALSE(doc.isModified());
    EXPECT_EQ(1u, log.messages().size()) << "only the parse failure is logged";
}

TEST(JsonDocumentSet, MissingParentCreatesNothing) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    EXPECT_EQ(-1, doc.setValue<char const*>("products->orb->package", JSON_STRING, "x"));
    EXPECT_EQ("{}", written(doc));
    EXPECT_EQ(0, doc.setValue<void*>("products", JSON_OBJECT, nullptr));
    EXPECT_EQ(0, doc.setValue<void*>("products->orb", JSON_OBJECT, nullptr));
    EXPECT_EQ(0, doc.setValue<char const*>("products->orb->package", JSON_STRING, "orb-1.2"));
    EXPECT_EQ(R"({"products":{"orb":{"package":"orb-1.2"}}})", written(doc));
}

TEST(JsonDocumentSet, EveryTypeIsStoredAndWritten) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    char text[] = "plain";
    EXPECT_EQ(0, doc.setValue<int>("version", JSON_INTEGER, 1));
    EXPECT_EQ(0, doc.setValue<void*>("last_archive_file", JSON_NULL, nullptr));
    EXPECT_EQ(0, doc.setValue<bool>("flag", JSON_BOOLEAN, false));
    EXPECT_EQ(0, doc.setValue<char const*>("name", JSON_STRING, "a\"b"));
    EXPECT_EQ(0, doc.setValue<char*>("buffer", JSON_STRING, text));
    EXPECT_EQ(0, doc.setValue<void*>("list", JSON_ARRAY, nullptr));
    EXPECT_EQ(R"({"version":1,"last_archive_file":null,"flag":false,"name":"a\"b",)"
              R"("buffer":"plain","list":[]})",
              written(doc));
    EXPECT_STREQ("a\"b", doc.getValue<char*>("name"));
}

TEST(JsonDocumentSet, DoublePrecisionRules) {
    struct Case {
        const char* name;
        json_type_t type;
        double value;
        int precision;  // -1: the variant without a precision
        const char* want;
    };
    const Case cases[] = {
        {"double default 4", JSON_DOUBLE, 2.5, -1, "2.5000"},
        {"exponential default 8", JSON_EXPONENTIAL, 1500.0, -1, "1.50000000e+03"},
        {"explicit 3", JSON_DOUBLE, 2.5, 3, "2.500"},
        {"explicit 0 on a new node", JSON_DOUBLE, 2.5, 0, "2"},
        {"exponential explicit 2", JSON_EXPONENTIAL, 1500.0, 2, "1.50e+03"},
        {"another type stores nothing", JSON_INTEGER, 2.5, -1, "0"},
        {"another type with a precision", JSON_BOOLEAN, 2.5, 3, "false"},
    };
    for (const auto& c : cases) {
        JsonDocument doc;
        ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
        int result = c.precision < 0 ? doc.setValue<double>("d", c.type, c.value)
                                     : doc.setValue<double>("d", c.type, c.value, c.precision);
        EXPECT_EQ(0, result) << c.name;
        EXPECT_EQ(std::string("{\"d\":") + c.want + "}", written(doc)) << c.name;
    }
}

TEST(JsonDocumentSet, ExistingDoubleKeepsItsPrecision) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"d":1.250})"));
    EXPECT_EQ(0, doc.setValue<double>("d", JSON_DOUBLE, 2.5));
    EXPECT_EQ(R"({"d":2.500})", written(doc));
    EXPECT_EQ(0, doc.setValue("d", JSON_EXPONENTIAL, 2.5, 0));
    EXPECT_EQ(R"({"d":2.500e+00})", written(doc));
    EXPECT_EQ(0, doc.setValue("d", JSON_DOUBLE, 2.5, 1));
    EXPECT_EQ(R"({"d":2.5})", written(doc));
}

TEST(JsonDocumentSet, SettingTwiceOverwritesInPlace) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":1,"b":2})"));
    EXPECT_EQ(0, doc.setValue<int>("a", JSON_INTEGER, 5));
    EXPECT_EQ(0, doc.setValue<int>("a", JSON_INTEGER, 6));
    EXPECT_EQ(0, doc.setValue<char const*>("b", JSON_STRING, "now text"));
    EXPECT_EQ(R"({"a":6,"b":"now text"})", written(doc));
}

TEST(JsonDocumentSet, InsertingAnExistingNameAppendsADuplicate) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":1})"));
    JsonNode* node = doc.insertNode("a", JSON_INTEGER);
    ASSERT_NE(nullptr, node);
    node->setNumberInteger(2);
    EXPECT_EQ(R"({"a":1,"a":2})", written(doc));
    EXPECT_EQ(1, doc.getValue<int>("a")) << "the first of the name wins";
}

TEST(JsonDocumentSet, ScalarOverAContainerKeepsItsChildren) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"o":{"x":1,"y":2}})"));
    EXPECT_EQ(0, doc.setValue<int>("o", JSON_INTEGER, 9));
    EXPECT_EQ(9, doc.getValue<int>("o"));
    EXPECT_EQ(2u, doc.findNode("o")->getNodeList().size());
    EXPECT_EQ(0, doc.setValue<void*>("o", JSON_OBJECT, nullptr));
    EXPECT_EQ(JSON_INTEGER, doc.getType("o")) << "an existing node is found, not retyped";
}

TEST(JsonDocumentSet, ConversionKeepsFieldsItDoesNotWrite) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"s":"old"})"));
    EXPECT_EQ(0, doc.setValue<int>("s", JSON_INTEGER, 3));
    JsonNode* node = doc.findNode("s");
    node->setType(JSON_STRING);
    EXPECT_EQ("old", node->getString());
    EXPECT_EQ(0, doc.setValue<void*>("s", JSON_NULL, nullptr));
    node->setType(JSON_STRING);
    EXPECT_EQ("", node->getString()) << "null clears every value";
}

TEST(JsonDocumentSet, ExistingObjectIsKeptWithItsContent) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"system":{"os":"x"}})"));
    EXPECT_EQ(0, doc.setValue<void*>("system", JSON_OBJECT, nullptr));
    EXPECT_EQ(0, doc.setValue<void*>("products", JSON_OBJECT, nullptr));
    EXPECT_EQ(R"({"system":{"os":"x"},"products":{}})", written(doc));
}

TEST(JsonDocumentSet, ArrayElementsByIndexOverwriteOrAppend) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"list":[1,2]})"));
    EXPECT_EQ(0, doc.setValue<int>("list[1]", JSON_INTEGER, 20));
    EXPECT_EQ(0, doc.setValue<int>("list[2]", JSON_INTEGER, 30));
    EXPECT_EQ(0, doc.setValue<int>("list[9]", JSON_INTEGER, 40)) << "the index is not checked";
    EXPECT_EQ(0, doc.setValue<void*>("list[4]", JSON_OBJECT, nullptr));
    EXPECT_EQ(R"({"list":[1,20,30,40,{}]})", written(doc));
    EXPECT_EQ(40, doc.getValue<int>("list[3]"));
    // Elements take their position as their name, so removal picks exactly one.
    EXPECT_EQ(0, doc.removeValue("list[3]"));
    EXPECT_EQ(R"({"list":[1,20,30,{}]})", written(doc));
    EXPECT_EQ(0, doc.removeValue("list[3]"));
    EXPECT_EQ(R"({"list":[1,20,30]})", written(doc));
}

TEST(JsonDocumentSet, AppendThroughEmptyIndexOnRootArray) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_ARRAY));
    EXPECT_EQ(0, doc.setValue<int>("[0]", JSON_INTEGER, 7));
    EXPECT_EQ(0, doc.setValue<char const*>("[1]", JSON_STRING, "x"));
    EXPECT_EQ(R"([7,"x"])", written(doc));
    EXPECT_EQ(2u, doc.getArraySize("[]"));
}

TEST(JsonDocumentSet, ModifiedFlagFollowsChanges) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":1})"));
    EXPECT_FALSE(doc.isModified()) << "a parse clears it";
    EXPECT_EQ(0, doc.setValue<int>("a", JSON_INTEGER, 1));
    EXPECT_TRUE(doc.isModified());
    ASSERT_EQ(0, load(doc, R"({"a":1})"));
    EXPECT_NE(nullptr, doc.insertNode("b", JSON_NULL));
    EXPECT_TRUE(doc.isModified());
    ASSERT_EQ(0, load(doc, R"({"a":1})"));
    EXPECT_EQ(-1, doc.removeValue("missing"));
    EXPECT_FALSE(doc.isModified());
    EXPECT_EQ(0, doc.removeValue("a"));
    EXPECT_TRUE(doc.isModified());
}

TEST(JsonDocumentRemove, MembersAndElements) {
    struct Case {
        const char* path;
        int result;
        const char* after;
    };
    const char* text = R"({"a":1,"o":{"x":1,"o":2},"l":[1,2,3],"s":"t"})";
    const Case cases[] = {
        {"a", 0, R"({"o":{"x":1,"o":2},"l":[1,2,3],"s":"t"})"},
        {"o->x", 0, R"({"a":1,"o":{"o":2},"l":[1,2,3],"s":"t"})"},
        // A path ending in an object erases among that object's own children.
        {"o", 0, R"({"a":1,"o":{"x":1},"l":[1,2,3],"s":"t"})"},
        {"l", 0, R"({"a":1,"o":{"x":1,"o":2},"s":"t"})"},
        {"l[0]", 0, R"({"a":1,"o":{"x":1,"o":2},"l":[2,3],"s":"t"})"},
        {"l[2]", 0, R"({"a":1,"o":{"x":1,"o":2},"l":[1,2],"s":"t"})"},
        {"l[3]", -1, text},
        {"missing", -1, text},
        {"o->missing", -1, text},
    };
    for (const auto& c : cases) {
        JsonDocument doc;
        ASSERT_EQ(0, load(doc, text));
        EXPECT_EQ(c.result, doc.removeValue(c.path)) << c.path;
        EXPECT_EQ(c.after, written(doc)) << c.path;
    }
}

TEST(JsonDocumentRemove, ObjectWithoutSameNamedChildStays) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"obj":{"x":1}})"));
    EXPECT_EQ(-1, doc.removeValue("obj"));
    EXPECT_EQ(R"({"obj":{"x":1}})", written(doc));
}

TEST(JsonDocumentLoad, FileIsReadUpToItsFirstNul) {
    jsontest::TempFile file(std::string("{\"a\":1}\0garbage", 15));
    JsonDocument doc;
    EXPECT_EQ(0, doc.loadDocument(file.path.c_str()));
    EXPECT_EQ(1, doc.getValue<int>("a"));
}

TEST(JsonDocumentLoad, SecondLoadDiscardsTheFirstTree) {
    jsontest::TempFile first("{\"a\":1}");
    jsontest::TempFile second("[true]");
    JsonDocument doc;
    ASSERT_EQ(0, doc.loadDocument(first.path.c_str()));
    ASSERT_EQ(0, doc.loadDocument(second.path.c_str()));
    EXPECT_EQ(JSON_NONE, doc.getType("a"));
    EXPECT_TRUE(doc.getValue<bool>("[0]"));
}

TEST(JsonDocumentLoad, FailuresAreLoggedAndLeaveTheDocumentInvalid) {
    jsontest::TempFile empty("");
    jsontest::TempFile bad("{\"a\":tru}");
    struct Case {
        const char* name;
        std::string path;
        std::string message;  // "" when nothing is logged
    };
    const Case cases[] = {
        {"missing file", "/nonexistent/gatr.json",
         "fopen on /nonexistent/gatr.json failed: No such file or directory"},
        {"folder", "/tmp", "fread on file /tmp failed: Is a directory"},
        {"empty file", empty.path, ""},
        {"bad value", bad.path,
         "exception caught: JsonDocument::JsonNode::makeNode(): malformed document: value must "
         "be true or false for boolean"},
    };
    for (const auto& c : cases) {
        jsontest::ErrorLog log;
        JsonDocument doc;
        ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
        EXPECT_EQ(-1, doc.loadDocument(c.path.c_str())) << c.name;
        EXPECT_FALSE(doc.isValid()) << c.name;
        auto messages = log.messages();
        if (c.message.empty()) {
            EXPECT_TRUE(messages.empty()) << c.name;
        } else {
            ASSERT_EQ(1u, messages.size()) << c.name;
            EXPECT_EQ(c.message, messages[0]) << c.name;
            EXPECT_EQ("jsonparser", log.firstSource()) << c.name;
        }
    }
}

}  // namespace
