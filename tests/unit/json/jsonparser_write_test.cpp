// The JSON writer: both layouts byte for byte, the buffer and file variants, the debug dump
// and the escaping of string values.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "json/jsonparser.h"
#include "json_test_support.h"

using jsontest::load;
using jsontest::written;
using JsonNode = JsonDocument::JsonNode;

namespace {

TEST(JsonWriter, EmptyObjectInBothLayouts) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    EXPECT_EQ("{}", written(doc, JSON_FORMAT_COMPACT));
    EXPECT_EQ("{\n}\n", written(doc, JSON_FORMAT_PRETTY));
    EXPECT_EQ("{}", written(doc, static_cast<json_format_t>(7))) << "any other value is compact";
}

TEST(JsonWriter, PrettyEmptyObjectDoesNotReadBack) {
    const std::string missingColon =
        "exception caught: JsonDocument::JsonNode::makeNode(): malformed document: missing a "
        "colon between the name/value pair";
    for (const char* text : {"{}", R"({"o":{}})"}) {
        jsontest::ErrorLog log;
        JsonDocument doc;
        ASSERT_EQ(0, load(doc, text));
        JsonDocument again;
        EXPECT_EQ(-1, load(again, written(doc, JSON_FORMAT_PRETTY))) << text;
        ASSERT_EQ(1u, log.messages().size()) << text;
        EXPECT_EQ(missingColon, log.messages()[0]) << text;
    }
}

TEST(JsonWriter, LayoutsByteForByte) {
    struct Case {
        const char* name;
        const char* text;
        const char* compact;
        const char* pretty;
    };
    const Case cases[] = {
        {"array of integers", "[1,2,3]", "[1,2,3]", "[1, 2, 3]\n"},
        {"member array", R"({"a":[1,2,3]})", R"({"a":[1,2,3]})",
         "{\n    \"a\": [1, 2, 3]\n}\n"},
        {"nested objects", R"({"a":{"b":{"c":1}},"d":"x"})", R"({"a":{"b":{"c":1}},"d":"x"})",
         "{\n    \"a\": {\n        \"b\": {\n            \"c\": 1\n        }\n    },\n"
         "    \"d\": \"x\"\n}\n"},
        {"objects inside an array", R"({"l":[{"x":1},{"x":2}]})", R"({"l":[{"x":1},{"x":2}]})",
         "{\n    \"l\": [{\n        \"x\": 1\n    }, {\n        \"x\": 2\n    }]\n}\n"},
        {"objects in a root array", R"([{"x":1},{"y":null}])", R"([{"x":1},{"y":null}])",
         "[{\n    \"x\": 1\n}, {\n    \"y\": null\n}]\n"},
        {"arrays in an array", "[[1,2],[],[true]]", "[[1,2],[],[true]]", "[[1, 2], [], [true]]\n"},
        {"every scalar", R"({"s":"t","i":-3,"d":2.50,"e":1.5e3,"b":false,"n":null})",
         R"({"s":"t","i":-3,"d":2.50,"e":1.5e+03,"b":false,"n":null})",
         "{\n    \"s\": \"t\",\n    \"i\": -3,\n    \"d\": 2.50,\n    \"e\": 1.5e+03,\n"
         "    \"b\": false,\n    \"n\": null\n}\n"},
    };
    for (const auto& c : cases) {
        JsonDocument doc;
        ASSERT_EQ(0, load(doc, c.text)) << c.name;
        EXPECT_EQ(c.compact, written(doc, JSON_FORMAT_COMPACT)) << c.name;
        EXPECT_EQ(c.pretty, written(doc, JSON_FORMAT_PRETTY)) << c.name;
    }
}

TEST(JsonWriter, DoublesFollowTheirPrecision) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    ASSERT_EQ(0, doc.setValue<double>("three", JSON_DOUBLE, 2.5, 3));
    ASSERT_EQ(0, doc.setValue<double>("none", JSON_DOUBLE, 2.5, 0));
    ASSERT_EQ(0, doc.setValue<double>("default", JSON_DOUBLE, 2.5));
    EXPECT_EQ(R"({"three":2.500,"none":2,"default":2.5000})", written(doc));
}

TEST(JsonWriter, NodeWithoutTypeWritesNoValue) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    ASSERT_NE(nullptr, doc.insertNode("x", JSON_NONE));
    EXPECT_EQ(R"({"x":})", written(doc));
}

TEST(JsonWriter, NamesAreWrittenAsStored) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    ASSERT_EQ(0, doc.setValue<int>("a\\b", JSON_INTEGER, 1));
    EXPECT_EQ(R"({"a\b":1})", written(doc));
}

TEST(JsonWriter, EscapedFormOfEveryByteClass) {
    struct Case {
        const char* name;
        std::string plain;
        std::string escaped;
    };
    const Case cases[] = {
        {"tab then quote", "\t\"", "\\t\\\""},
        {"named controls", "\b\t\n\f\r", "\\b\\t\\n\\f\\r"},
        {"backslash", "a\\b", "a\\\\b"},
        {"slash is not escaped", "a/b", "a/b"},
        {"printable ends", " ~", " ~"},
        {"control byte 1", "\x01", "\\x01"},
        {"vertical tab", "\v", "\\x0b"},
        {"delete", "\x7f", "\\x7f"},
        {"NUL", std::string(1, '\0'), "\\x00"},
        {"byte 0xE9 sign-extended", "caf\xE9", "caf\\xffffffe9"},
        {"byte 0x80", "\x80", "\\xffffff80"},
        {"byte 0xFF", "\xFF", "\\xffffffff"},
    };
    for (const auto& c : cases) {
        JsonNode node;
        node.setString(c.plain);
        EXPECT_EQ(c.escaped, node.getString()) << c.name;
        EXPECT_EQ(c.plain, node.getUnescapedString()) << c.name;
    }
}

TEST(JsonWriter, StringValueIsWrittenEscaped) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    ASSERT_EQ(0, doc.setValue<char const*>("s", JSON_STRING, "\t\""));
    EXPECT_EQ("{\"s\":\"\\t\\\"\"}", written(doc));
    JsonDocument again;
    ASSERT_EQ(0, load(again, written(doc)));
    EXPECT_STREQ("\t\"", again.getValue<char*>("s"));
}

TEST(JsonWriter, HighByteDoesNotReadBackAsItself) {
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    ASSERT_EQ(0, doc.setValue<char const*>("s", JSON_STRING, "\xE9"));
    EXPECT_EQ(R"({"s":"\xffffffe9"})", written(doc));
    JsonDocument again;
    ASSERT_EQ(0, load(again, written(doc)));
    EXPECT_STREQ("\xFF" "ffffe9", again.getValue<char*>("s"));
}

TEST(JsonWriter, EncodeHelpersFormatTheirEscapes) {
    std::string out;
    JsonNode::encodeControl(0x1f, out);
    JsonNode::encodeUnicode(0x20ac, out);
    JsonNode::encodeUnicode(0x9, out);
    EXPECT_EQ("\\x1f\\u20ac\\u0009", out);
}

TEST(JsonWriter, BufferHoldsTheTextAndZerosAfterIt) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"case_number":"01234567","list":[1,2]})"));
    char buffer[64];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(0, doc.writeDocument(JSON_FORMAT_COMPACT, buffer, sizeof buffer));
    const std::string want = R"({"case_number":"01234567","list":[1,2]})";
    EXPECT_EQ(want, std::string(buffer));
    for (size_t i = want.size(); i < sizeof buffer; ++i) EXPECT_EQ('\0', buffer[i]) << i;

    EXPECT_EQ(0, doc.writeDocument(JSON_FORMAT_PRETTY, buffer, sizeof buffer));
    EXPECT_EQ("{\n    \"case_number\": \"01234567\",\n    \"list\": [1, 2]\n}\n",
              std::string(buffer));
}

TEST(JsonWriter, BufferShorterThanTheTextDoesNotYieldIt) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"a":"0123456789","b":"abcdefghij"})"));
    const std::string text = written(doc);
    char small[16];
    EXPECT_EQ(0, doc.writeDocument(JSON_FORMAT_COMPACT, small, sizeof small));
    EXPECT_NE(text.substr(0, sizeof small), std::string(small, sizeof small));
}

TEST(JsonWriter, InvalidDocumentWritesNothing) {
    JsonDocument doc;
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ(-1, doc.writeDocument(JSON_FORMAT_COMPACT, buffer, sizeof buffer));
    EXPECT_STREQ("xxxxxxx", buffer);
    EXPECT_EQ("", written(doc));
    EXPECT_EQ(-1, doc.writeDocument(JSON_FORMAT_PRETTY, "/tmp/gatr_never_written.json"));
    EXPECT_NE(0, access("/tmp/gatr_never_written.json", F_OK));
    char* data = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&data, &size);
    doc.dump(stream);
    std::fclose(stream);
    EXPECT_EQ(0u, size);
    std::free(data);
}

TEST(JsonWriter, FileIsWrittenAndModifiedCleared) {
    jsontest::TempFile file("old content, longer than the new");
    const char* path = file.path.c_str();
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    ASSERT_EQ(0, doc.setValue<int>("version", JSON_INTEGER, 1));
    ASSERT_TRUE(doc.isModified());
    EXPECT_EQ(0, doc.writeDocument(JSON_FORMAT_PRETTY, path));
    EXPECT_FALSE(doc.isModified());
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    EXPECT_EQ("{\n    \"version\": 1\n}\n", content.str());
}

TEST(JsonWriter, UnopenableFileIsLogged) {
    jsontest::ErrorLog log;
    JsonDocument doc;
    ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
    EXPECT_EQ(-1, doc.writeDocument(JSON_FORMAT_PRETTY, "/nonexistent/dir/x.json"));
    EXPECT_TRUE(doc.isModified());
    ASSERT_EQ(1u, log.messages().size());
    EXPECT_EQ("fopen on /nonexistent/dir/x.json failed: No such file or directory",
              log.messages()[0]);
    EXPECT_EQ("jsonparser", log.firstSource());
}

TEST(JsonWriter, DumpShowsOneNodeALine) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, R"({"s":"a\tb","i":3,"d":1.50,"e":2.5e1,"t":true,"n":null,)"
                           R"("o":{"f":false},"l":[7,{"k":"v"}]})"));
    char* data = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&data, &size);
    doc.dump(stream);
    std::fclose(stream);
    const std::string text(data, size);
    std::free(data);
    EXPECT_EQ("Object {\n"
              "    [s] => a\\tb\n"
              "    [i] => 3\n"
              "    [d] => 1.50\n"
              "    [e] => 2.5e+01\n"
              "    [t] => true\n"
              "    [n] => null\n"
              "    [o] => Object {\n"
              "        [f] => false\n"
              "    }\n"
              "    [l] => Array (\n"
              "        [0] => 7\n"
              "        [] => Object {\n"
              "            [k] => v\n"
              "        }\n"
              "    )\n"
              "}\n",
              text);
}

TEST(JsonWriter, DumpOfRootArray) {
    JsonDocument doc;
    ASSERT_EQ(0, load(doc, "[1]"));
    char* data = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&data, &size);
    doc.dump(stream);
    std::fclose(stream);
    EXPECT_EQ("Array (\n    [0] => 1\n)\n", std::string(data, size));
    std::free(data);
}

}  // namespace
