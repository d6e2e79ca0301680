// The JSON parser: accepted and rejected documents, exact failure messages, scalar typing,
// string escapes, and the limits on nesting and size.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/jsonparser.h"
#include "json_test_support.h"

using jsontest::load;
using jsontest::written;
using JsonNode = JsonDocument::JsonNode;

namespace {

const std::string kPrefix = "exception caught: ";
const std::string kMissingColon =
    "JsonDocument::JsonNode::makeNode(): malformed document: missing a colon between the "
    "name/value pair";
const std::string kBoolean =
    "JsonDocument::JsonNode::makeNode(): malformed document: value must be true or false for "
    "boolean";
const std::string kNull =
    "JsonDocument::JsonNode::makeNode(): malformed document: value must be null";
const std::string kNumber =
    "JsonDocument::JsonNode::makeNode(): malformed document: value must be a string in double "
    "quotes, or a number, or true or false or null";
const std::string kBackslashLast =
    "JsonDocument::JsonNode::setUnescapedString(): malformed string: no further characters after "
    "a reverse solidus";
const std::string kUnicode =
    "JsonDocument::JsonNode::setUnescapedString(): malformed string: expecting unicode character "
    "in the format \\u<four-hex-digits>";
const std::string kControl =
    "JsonDocument::JsonNode::setUnescapedString(): malformed string: expecting control character "
    "in the format \\x<two-hex-digits>";
const std::string kHex =
    "JsonDocument::JsonNode::convertHexToNum(): invalid hexadecimal character encountered";
const std::string kDepth =
    "JsonDocument::processEntity(): malformed document: nested deeper than 512 levels";

std::string nested(size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
}

TEST(JsonParser, AcceptedDocumentsAsWrittenBack) {
    struct Case {
        const char* name;
        std::string text;
        const char* compact;
    };
    const Case cases[] = {
        {"empty object", "{}", "{}"},
        {"empty array", "[]", "[]"},
        {"surrounding whitespace", " \t\r\n{}\n\v\f ", "{}"},
        {"trailing comma in object", R"({"a":1,})", R"({"a":1})"},
        {"trailing comma in array", "[1,]", "[1]"},
        {"doubled comma skipped", "[1,,2]", "[1,2]"},
        {"all scalar types", R"({"s":"x","i":-7,"d":1.50,"e":1.5e3,"t":true,"f":false,"n":null})",
         R"({"s":"x","i":-7,"d":1.50,"e":1.5e+03,"t":true,"f":false,"n":null})"},
        {"whitespace around members", "{ \"a\" : 1 ,\n \"b\"\t:\t\"x\" }", R"({"a":1,"b":"x"})"},
        {"name trimmed of blanks inside its quotes", R"({"  a  ":1})", R"({"a":1})"},
        {"nested containers", R"({"o":{"l":[1,{"k":[]}],"e":{}}})", R"({"o":{"l":[1,{"k":[]}],"e":{}}})"},
        {"array in array", "[[1,2],[3]]", "[[1,2],[3]]"},
        {"pretty layout", "{\n    \"a\": [1, 2],\n    \"o\": {\n        \"b\": null\n    }\n}\n",
         R"({"a":[1,2],"o":{"b":null}})"},
        {"objects in an array, pretty", "[{\n    \"x\": 1\n}, {\n    \"x\": 2\n}]\n",
         R"([{"x":1},{"x":2}])"},
        {"lone quote is an empty string", "[\"]", R"([""])"},
        {"two-character string value", R"(["x])", R"([""])"},
        {"comma inside a string", R"({"a":"x,y"})", R"({"a":"x,y"})"},
        {"brackets inside a string", R"({"a":"[{"})", R"({"a":"[{"})"},
        {"exponent without a dot", "[1e5]", "[1e+05]"},
    };
    for (const auto& c : cases) {
        JsonDocument doc;
        EXPECT_EQ(0, load(doc, c.text)) << c.name;
        EXPECT_TRUE(doc.isValid()) << c.name;
        EXPECT_EQ(c.compact, written(doc)) << c.name;
    }
}

TEST(JsonParser, StructuralRejectionsAreSilent) {
    const char* cases[] = {"", "   \n", "x", "{", "[", "{]", "[}", "{\"a\":1", "\"text\"", "null",
                           "1", "}{"};
    for (const char* text : cases) {
        jsontest::ErrorLog log;
        JsonDocument doc;
        EXPECT_EQ(-1, load(doc, text)) << text;
        EXPECT_FALSE(doc.isValid()) << text;
        EXPECT_EQ("", log.text()) << text;
    }
}

TEST(JsonParser, MalformedItemsReportTheirExactMessage) {
    const std::string outOfRange = jsontest::emptyAtMessage();
    struct Case {
        const char* name;
        std::string text;
        std::string message;
    };
    const Case cases[] = {
        {"whitespace inside empty object", "{ }", kMissingColon},
        {"line feed inside empty object", "{\n}", kMissingColon},
        {"pretty empty object as written", "{\n}\n", kMissingColon},
        {"whitespace inside empty array", "[ ]", outOfRange},
        {"trailing comma then line feed in object", "{\"a\":1,\n}", kMissingColon},
        {"trailing comma then line feed in array", "[1,\n]", outOfRange},
        {"member without colon", R"({"a"})", kMissingColon},
        {"nothing after the colon", R"({"a":})", outOfRange},
        {"tru", R"({"a":tru})", kBoolean},
        {"truex", R"({"a":truex})", kBoolean},
        {"fals in array", "[fals]", kBoolean},
        {"nil", R"({"a":nil})", kNull},
        {"nulll", "[nulll]", kNull},
        {"1.2.3", R"({"a":1.2.3})", kNumber},
        {"bare word", "[abc]", kNumber},
        {"number with blank inside", "[1 2]", kNumber},
        {"stray closer", "[1]],2]", kNumber},
        {"colon inside a name", R"({"a:b":1})", kNumber},
        {"escaped quote before comma", R"({"a":"x\",y"})", kMissingColon},
    };
    for (const auto& c : cases) {
        jsontest::ErrorLog log;
        JsonDocument doc;
        EXPECT_EQ(-1, load(doc, c.text)) << c.name;
        EXPECT_FALSE(doc.isValid()) << c.name;
        auto messages = log.messages();
        ASSERT_FALSE(messages.empty()) << c.name;
        EXPECT_EQ(kPrefix + c.message, messages.back()) << c.name;
        EXPECT_EQ("jsonparser", log.firstSource()) << c.name;
    }
}

TEST(JsonParser, FailedParseKeepsNothingUsable) {
    jsontest::ErrorLog log;
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":1})"));
    EXPECT_EQ(-1, load(doc, R"({"b":2,"c":nil})"));
    EXPECT_EQ(JSON_NONE, doc.getType("a"));
    EXPECT_EQ(JSON_NONE, doc.getType("b"));
    EXPECT_EQ(0, load(doc, R"({"c":3})"));
    EXPECT_EQ(3, doc.getValue<int>("c"));
}

TEST(JsonParser, ArrayElementsAreNamedByScalarCount) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"([1,"s",true,null])"));
    std::vector<std::string> names;
    std::vector<json_type_t> types;
    for (JsonNode* node : doc.findNode("")->getNodeList()) {
        names.push_back(node->getName());
        types.push_back(node->getType());
        EXPECT_TRUE(node->isArrayElement());
    }
    EXPECT_EQ((std::vector<std::string>{"0", "1", "2", "3"}), names);
    EXPECT_EQ((std::vector<json_type_t>{JSON_INTEGER, JSON_STRING, JSON_BOOLEAN, JSON_NULL}),
              types);

    ASSERT_EQ(0, load(doc, "[1,{},2]"));
    names.clear();
    for (JsonNode* node : doc.findNode("")->getNodeList()) names.push_back(node->getName());
    EXPECT_EQ((std::vector<std::string>{"0", "", "1"}), names)
        << "containers do not advance the count";
}

TEST(JsonParser, NumbersTakeTypeValueAndPrecision) {
    struct Case {
        const char* text;
        json_type_t type;
        double value;
        int precision;
    };
    const Case cases[] = {
        {"1.50", JSON_DOUBLE, 1.5, 2},
        {"1.5e3", JSON_EXPONENTIAL, 1500.0, 1},
        {"2.125E-2", JSON_EXPONENTIAL, 0.02125, 3},
        {"1e5", JSON_EXPONENTIAL, 100000.0, 0},
        {"-7", JSON_INTEGER, -7, 0},
        {"+5", JSON_INTEGER, 5, 0},
        {"0", JSON_INTEGER, 0, 0},
        {"2147483648", JSON_INTEGER, -2147483648.0, 0},  // narrowed to 32 bits
        {"--5", JSON_INTEGER, 0, 0},                     // read as far as it converts
        {".5", JSON_DOUBLE, 0.5, 1},
        {"3.", JSON_DOUBLE, 3.0, 0},
    };
    for (const auto& c : cases) {
        JsonDocument doc;
        ASSERT_EQ(0, load(doc, std::string("{\"n\":") + c.text + "}")) << c.text;
        JsonNode* node = doc.findNode("n");
        ASSERT_NE(nullptr, node) << c.text;
        EXPECT_EQ(c.type, node->getType()) << c.text;
        double got = c.type == JSON_INTEGER ? node->getNumberInteger() : node->getNumberDouble();
        EXPECT_DOUBLE_EQ(c.value, got) << c.text;
        EXPECT_EQ(c.precision, node->getNumberDoublePrecision()) << c.text;
    }
}

TEST(JsonParser, EscapesGiveThePlainForm) {
    struct Case {
        const char* name;
        std::string escaped;  // between the quotes of a JSON string
        std::string plain;
        std::string message;  // logged, or ""
    };
    const Case cases[] = {
        {"simple escapes", R"(\"\/\b\f\n\r\t)", "\"/\b\f\n\r\t", ""},
        {"escaped backslash", R"(a\\b)", "a\\b", ""},
        {"unknown escape gives a backslash", R"(a\qb)", "a\\b", ""},
        {"unicode up to 0xFF is one byte", R"(caf\u00e9)", "caf\xE9", ""},
        {"unicode above 0xFF stays as written", R"(\u20AC!)", "\\u20AC!", ""},
        {"control escape", R"(\x41\x7e)", "A~", ""},
        {"control escape of a NUL byte", R"(a\x00b)", std::string("a\0b", 3), ""},
        {"backslash last", R"(ab\)", "ab", kBackslashLast},
        {"truncated unicode", R"(ab\u12)", "ab", kUnicode},
        {"unicode with bad digit", R"(ab\u12zz)", "ab", kHex},
        {"truncated control", R"(ab\x4)", "ab", kControl},
        {"control with bad digit", R"(ab\xg1)", "ab", kHex},
    };
    for (const auto& c : cases) {
        jsontest::ErrorLog log;
        JsonDocument doc;
        EXPECT_EQ(0, load(doc, "[\"" + c.escaped + "\"]")) << c.name << ": never fails the parse";
        JsonNode* node = doc.findNode("[0]");
        ASSERT_NE(nullptr, node) << c.name;
        EXPECT_EQ(c.escaped, node->getString()) << c.name;
        EXPECT_EQ(c.plain, node->getUnescapedString()) << c.name;
        auto messages = log.messages();
        if (c.message.empty()) {
            EXPECT_TRUE(messages.empty()) << c.name;
        } else {
            ASSERT_EQ(1u, messages.size()) << c.name;
            EXPECT_EQ(kPrefix + c.message, messages[0]) << c.name;
        }
    }
}

TEST(JsonParser, BadEscapeAtTheStartLeavesTheEscapedForm) {
    jsontest::ErrorLog log;
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":"\u00"})"));
    EXPECT_STREQ("\\u00", doc.getValue<char*>("a")) << "the plain form is empty";
}

TEST(JsonParser, ArrayInsideArrayIsCutAtAnyColon) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, "[[1,2]]"));
    EXPECT_EQ("[[1,2]]", written(doc));
    ASSERT_EQ(0, load(doc, R"([["a:b"]])"));
    EXPECT_NE(R"([["a:b"]])", written(doc)) << "the inner array is split at its colon";
    EXPECT_EQ(JSON_ARRAY, doc.getType("[0]"));
    EXPECT_EQ("[\"a", doc.findNode("[0]")->getName());
}

TEST(JsonParser, TextEndsAtTheFirstNulWhateverTheLength) {
    JsonDocument doc;
    const char text[] = "{\"a\":1}\0{\"b\":";
    EXPECT_EQ(0, doc.loadDocument(text, sizeof text));
    EXPECT_EQ(1, doc.getValue<int>("a"));
    const char cut[] = "{\"a\":\"x\0y\"}";
    EXPECT_EQ(-1, doc.loadDocument(cut, sizeof cut));
    EXPECT_EQ(-1, doc.loadDocument(nullptr, 4));
}

TEST(JsonParser, DeepNestingIsBoundedAndReported) {
    struct Case {
        size_t levels;
        int result;
    };
    const Case cases[] = {{2, 0}, {512, 0}, {513, -1}, {10000, -1}, {100000, -1}};
    for (const auto& c : cases) {
        jsontest::ErrorLog log;
        JsonDocument doc;
        EXPECT_EQ(c.result, load(doc, nested(c.levels))) << c.levels;
        auto messages = log.messages();
        if (c.result == 0) {
            EXPECT_TRUE(messages.empty()) << c.levels;
            EXPECT_EQ(nested(c.levels), written(doc)) << c.levels;
        } else {
            ASSERT_EQ(1u, messages.size()) << c.levels;
            EXPECT_EQ(kPrefix + kDepth, messages[0]) << c.levels;
        }
    }
    jsontest::ErrorLog log;
    JsonDocument doc;
    EXPECT_EQ(-1, load(doc, std::string(100000, '{') + std::string(100000, '}')));
    EXPECT_EQ(1u, log.messages().size());
}

TEST(JsonParser, HugeStringIsKeptWhole) {
    const std::string big(8 * 1024 * 1024, 'z');
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, "{\"big\":\"" + big + "\",\"after\":1}"));
    EXPECT_EQ(big.size(), std::strlen(doc.getValue<char*>("big")));
    EXPECT_EQ(1, doc.getValue<int>("after"));
}

// Empty objects are left out: their pretty form does not read back (see the writer's tests).
TEST(JsonParser, RoundTripsThroughBothLayouts) {
    const char* cases[] = {
        R"({"version":1,"last_archive_file":null,"system":{"os":"Linux","cpus":8}})",
        R"([{"id":1,"volumes":[{"vol_id":"a"},{"vol_id":"b"}],"ratio":0.750,"big":1.25e+10}])",
        R"({"text":"tab\there \"quoted\" back\\slash","list":[true,false,null,-3]})",
        R"({"deep":{"deeper":{"deepest":[[1],[2,[3]]]}}})",
        R"({"e":[],"o":{"x":[]}})",
    };
    for (const char* text : cases) {
        for (json_format_t format : {JSON_FORMAT_COMPACT, JSON_FORMAT_PRETTY}) {
            JsonDocument first;
            ASSERT_EQ(0, load(first, text)) << text;
            std::string once = written(first, format);
            JsonDocument second;
            ASSERT_EQ(0, load(second, once)) << once;
            EXPECT_EQ(once, written(second, format)) << text << " layout " << format;
            EXPECT_EQ(written(first), written(second)) << text << " layout " << format;
        }
    }
}

TEST(JsonParser, CreateDocumentParsesEmptyContainers) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_ARRAY));
    EXPECT_EQ(JSON_ARRAY, doc.getType(""));
    EXPECT_EQ(".", doc.findNode("")->getName());
    EXPECT_FALSE(doc.findNode("")->isArrayElement());
    EXPECT_EQ(0u, doc.getArraySize("[]"));
}

}  // namespace
