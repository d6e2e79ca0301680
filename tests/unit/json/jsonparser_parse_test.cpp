// The parser's leniencies and strictnesses, which documents written for gatr rely on, and loading files.
#include "json/jsonparser.h"
#include "test_support.h"

static const std::string kCaught = "exception caught: JsonDocument::";
static const std::string kMakeNode = kCaught + "JsonNode::makeNode(): malformed document: ";
static const std::string kColon = kMakeNode + "missing a colon between the name/value pair\n";
static const std::string kNumber =
    kMakeNode + "value must be a string in double quotes, or a number, or true or false or null\n";
static const std::string kUnescape = kCaught + "JsonNode::setUnescapedString(): malformed string: ";
static std::string nested(size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); }

TEST(JsonParser, AcceptedTextsReadBackAsWritten) {
    const struct { std::string in, want; } kCases[] = {
        {" \t\r\n{}\n", "{}"}, {"[]", "[]"}, {"[1,,2,]", "[1,2]"}, {nested(512), nested(512)},
        {"[1.50,.5,3.,1.5e3,2.125E-2,1e5,-7,+5,2147483648,\"s\",false,null]",  // types and written precisions
         "[1.50,0.5,3,1.5e+03,2.125e-02,1e+05,-7,5,-2147483648,\"s\",false,null]"},
        {R"({"a":1,})", R"({"a":1})"},  // the empty item after a trailing comma is skipped
        {"{ \"  a  \" : \"x\" ,\n\"b\"\t:\ttrue }", R"({"a":"x","b":true})"},  // quotes and blanks trimmed together
        {R"({"o":{"l":[1,{"k":[]}],"e":{}},"s":"x,y:[{"})", R"({"o":{"l":[1,{"k":[]}],"e":{}},"s":"x,y:[{"})"},
        {"{\n    \"a\": [1, []],\n    \"o\": {\n        \"b\": null\n    }\n}\n", R"({"a":[1,[]],"o":{"b":null}})"},
    };
    for (const auto& c : kCases) {
        ts::ErrorLog log;
        JsonDocument doc;
        EXPECT_EQ(0, doc.loadDocument(c.in.c_str(), c.in.size())) << c.in;
        EXPECT_EQ(c.want, ts::written(doc)) << c.in;
        EXPECT_EQ("", log.messages()) << c.in;
    }
}

TEST(JsonParser, RejectedTextsLogTheirExactMessage) {
    std::string noValue = "exception caught: ";  // the string class's own text for at(0) on ""
    try { (void)std::string().at(0); } catch (const std::out_of_range& e) { noValue += e.what() + std::string("\n"); }
    const struct { std::string in, want; } kCases[] = {
        {"", ""}, {"x", ""}, {"{", ""}, {"[}", ""}, {R"({"a":1)", ""}, {"null", ""},  // refused silently
        {"{ }", kColon}, {"{\n}\n", kColon}, {"{\"a\":1,\n}", kColon}, {R"({"a"})", kColon},
        {"[ ]", noValue}, {"[1,\n]", noValue}, {R"({"a":})", noValue},
        {R"({"a":tru})", kMakeNode + "value must be true or false for boolean\n"},
        {R"({"a":nil})", kMakeNode + "value must be null\n"}, {R"({"a":1.2.3})", kNumber},
        {R"({"a:b":1})", kNumber},  // the name ends at the first colon: the value is b":1
        // An escaped quote ends the string for the splitter: "a":"x\ ends in a backslash, y" has no colon.
        {R"({"a":"x\",y"})", kUnescape + "no further characters after a reverse solidus\n" + kColon},
        {nested(513), kCaught + "processEntity(): malformed document: nested deeper than 512 levels\n"},
    };
    for (const auto& c : kCases) {
        ts::ErrorLog log;
        JsonDocument doc;
        EXPECT_EQ(-1, doc.loadDocument(c.in.c_str(), c.in.size())) << c.in;
        EXPECT_FALSE(doc.isValid()) << c.in;
        EXPECT_EQ(c.want, log.messages()) << c.in;
    }
}

TEST(JsonParser, EscapesGiveThePlainFormAndNeverFailTheParse) {
    const struct { const char* in; std::string plain, message; } kCases[] = {
        {R"(\"\/\b\f\n\r\t)", "\"/\b\f\n\r\t", ""}, {R"(a\\b\q)", "a\\b\\", ""},  // unknown: a backslash
        {R"(caf\u00e9\u00FF)", "caf\xE9\xFF", ""}, {R"(\u0100\u20ac)", "\\u0100\\u20ac", ""},  // to 0xFF a byte
        {R"(\x41\x00)", std::string("A\0", 2), ""}, {R"(\xffffffe9)", "\xFF" "ffffe9", ""},  // as the writer puts 0xE9
        {R"(ab\)", "ab", kUnescape + "no further characters after a reverse solidus\n"},
        {R"(ab\u12)", "ab", kUnescape + "expecting unicode character in the format \\u<four-hex-digits>\n"},
        {R"(ab\x4)", "ab", kUnescape + "expecting control character in the format \\x<two-hex-digits>\n"},
        {R"(ab\xg1)", "ab", kCaught + "JsonNode::convertHexToNum(): invalid hexadecimal character encountered\n"},
    };
    for (const auto& c : kCases) {
        ts::ErrorLog log;
        JsonDocument doc;
        const std::string text = std::string("[\"") + c.in + "\"]";
        ASSERT_EQ(0, doc.loadDocument(text.c_str(), text.size())) << c.in;
        EXPECT_EQ(c.in, doc.findNode("[0]")->getString()) << c.in;
        EXPECT_EQ(c.plain, doc.findNode("[0]")->getUnescapedString()) << c.in;
        EXPECT_EQ(c.message, log.messages()) << c.in;
    }
}

TEST(JsonDocumentLoad, FileIsReadUpToItsFirstNulAndFailuresAreLogged) {
    ts::TempDir dir;
    const struct { const char* name; bool made; std::string content; int want; std::string message; } kCases[] = {
        {"good.json", true, std::string("{\"a\":1}\0{\"b\"", 12), 0, ""}, {"empty.json", true, "", -1, ""},
        {"missing.json", false, "", -1, "fopen on " + dir.path + "/missing.json failed: No such file or directory\n\n"},
        {"", false, "", -1, "fread on file " + dir.path + "/ failed: Is a directory\n"},
        {"bad.json", true, "{\"a\":tru}", -1, kMakeNode + "value must be true or false for boolean\n"},
    };
    for (const auto& c : kCases) {
        if (c.made) dir.write(c.name, c.content);
        ts::ErrorLog log;
        JsonDocument doc;
        ASSERT_EQ(0, doc.createDocument(JSON_OBJECT));
        EXPECT_EQ(c.want, doc.loadDocument((dir.path + "/" + c.name).c_str())) << c.name;
        EXPECT_EQ(c.want == 0, doc.isValid()) << c.name;
        EXPECT_EQ(c.want == 0 ? 1 : 0, doc.getValue<int>("a")) << c.name;
        EXPECT_EQ(c.message, log.messages()) << c.name;
    }
}
