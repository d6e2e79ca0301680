// The writer: both layouts, double precisions, escaping, and writing into a caller's buffer.
#include <cstring>
#include "json/jsonparser.h"
#include "test_support.h"

TEST(JsonWriter, CompactAndPrettyLayouts) {
    const struct { const char* in; const char* pretty; } kCases[] = {  // the compact form is the input
        {"{}", "{\n}\n"}, {"[1,2,3]", "[1, 2, 3]\n"},  // elements share the array's line
        {R"({"a":{"b":{"c":1}},"d":"x"})",
         "{\n    \"a\": {\n        \"b\": {\n            \"c\": 1\n        }\n    },\n    \"d\": \"x\"\n}\n"},
        {R"({"l":[{"x":1},{"x":2}],"e":[]})",
         "{\n    \"l\": [{\n        \"x\": 1\n    }, {\n        \"x\": 2\n    }],\n    \"e\": []\n}\n"},
        {R"([[1,"s"],{"t":true,"n":null,"d":2.50,"e":1.5e+03}])",
         "[[1, \"s\"], {\n    \"t\": true,\n    \"n\": null,\n    \"d\": 2.50,\n    \"e\": 1.5e+03\n}]\n"},
    };
    for (const auto& c : kCases) {
        JsonDocument doc;
        ASSERT_EQ(0, doc.loadDocument(c.in, strlen(c.in))) << c.in;
        EXPECT_EQ(c.in, ts::written(doc, JSON_FORMAT_COMPACT)) << c.in;
        EXPECT_EQ(c.pretty, ts::written(doc, JSON_FORMAT_PRETTY)) << c.in;
    }
}

TEST(JsonWriter, DoublesAreWrittenWithTheirPrecision) {
    const struct { json_type_t type; int precision; double value; const char* want; } kCases[] = {  // -1: none given
        {JSON_DOUBLE, 3, 2.5, "2.500"}, {JSON_DOUBLE, 0, 2.5, "2"}, {JSON_DOUBLE, -1, 2.5, "2.5000"},
        {JSON_EXPONENTIAL, 1, 1500, "1.5e+03"}, {JSON_EXPONENTIAL, -1, 1500, "1.50000000e+03"},
        {JSON_INTEGER, -1, 2.5, "0"},  // not a floating type: the node keeps the type it was inserted with
    };
    for (const auto& c : kCases) {
        JsonDocument doc;
        ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
        ASSERT_EQ(0, c.precision < 0 ? doc.setValue<double>("d", c.type, c.value)
                                     : doc.setValue<double>("d", c.type, c.value, c.precision));
        EXPECT_EQ(std::string("{\"d\":") + c.want + "}", ts::written(doc)) << c.want;
    }
}

TEST(JsonWriter, StringsAreEscapedByteByByte) {
    const struct { std::string plain, want; } kCases[] = {
        {"\t\"", "\\t\\\""}, {"\b\n\f\r", "\\b\\n\\f\\r"}, {"a\\b/c", "a\\\\b/c"}, {" ~", " ~"},
        {"\x01\v\x7f", "\\x01\\x0b\\x7f"}, {std::string(1, '\0'), "\\x00"},
        {"caf\xE9", "caf\\xffffffe9"},  // sign-extended, so it reads back as another text
    };
    for (const auto& c : kCases) {
        JsonDocument::JsonNode node;
        node.setString(c.plain);
        EXPECT_EQ(c.want, node.getString()) << c.want;
    }
}

TEST(JsonWriter, BufferHoldsTheTextOnlyWhenItIsShorter) {
    const char text[] = R"({"case_number":"01234567","list":[1,2]})";
    JsonDocument doc;
    ASSERT_EQ(0, doc.loadDocument(text, sizeof text));
    const struct { json_format_t format; size_t size; const char* want; } kCases[] = {
        {JSON_FORMAT_COMPACT, 64, text}, {JSON_FORMAT_COMPACT, sizeof text, text},
        {JSON_FORMAT_PRETTY, 64, "{\n    \"case_number\": \"01234567\",\n    \"list\": [1, 2]\n}\n"},
        {JSON_FORMAT_COMPACT, sizeof text - 1, text},  // fits, but leaves no terminator
        {JSON_FORMAT_COMPACT, 16, nullptr},            // the stream refills the buffer from its start
    };
    for (const auto& c : kCases) {
        char buffer[80];
        memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(0, doc.writeDocument(c.format, buffer, c.size)) << c.size;
        std::string want(c.want != nullptr ? c.want : text);
        want.resize(c.size, '\0');
        EXPECT_EQ(c.want != nullptr, want == std::string(buffer, c.size)) << std::string(buffer, c.size);
        EXPECT_EQ('x', buffer[c.size]) << c.size;
    }
}

TEST(JsonWriter, DebugDumpShowsOneNodeALine) {  // no caller in the program: only here is it seen
    const char text[] = R"({"s":"a\tb","e":2.5e1,"t":true,"n":null,"o":{"f":false},"l":[7,{"k":"v"}]})";
    JsonDocument doc;
    ASSERT_EQ(0, doc.loadDocument(text, strlen(text)));
    ts::MemoryStream out;
    doc.dump(out.stream);
    EXPECT_EQ("Object {\n    [s] => a\\tb\n    [e] => 2.5e+01\n    [t] => true\n    [n] => null\n"
              "    [o] => Object {\n        [f] => false\n    }\n    [l] => Array (\n        [0] => 7\n"
              "        [] => Object {\n            [k] => v\n        }\n    )\n}\n",
              out.text());
}
