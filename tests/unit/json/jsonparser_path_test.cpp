// Path access: indexes, "[]" for the array itself, and the walk that goes on among siblings.
#include "json/jsonparser.h"
#include "test_support.h"

TEST(JsonPath, PathsReachTheirNodesAndArraySizes) {
    const char text[] = R"({"ftp_servers":[{"port":21},{"url":"ftp://two","port":990}],"status":0,
        "status_message":"broken","obj":{"in":{"deep":true}},"list":[1,2,3],"grid":[[1,2],[3,4,5]]})";
    JsonDocument doc;
    ASSERT_EQ(0, doc.loadDocument(text, sizeof text));
    const struct { const char* in; json_type_t type; size_t size; } kCases[] = {
        {"", JSON_OBJECT, 0}, {".", JSON_NONE, 0}, {"->obj->->in->deep->", JSON_BOOLEAN, 0}, {"OBJ", JSON_NONE, 0},
        {"status->status_message", JSON_STRING, 0}, {"list->status", JSON_INTEGER, 0},  // on among the siblings
        {"ftp_servers", JSON_ARRAY, 2}, {"ftp_servers[]", JSON_ARRAY, 2}, {"ftp_servers[1]", JSON_OBJECT, 0},
        {"ftp_servers[]->url->whatever", JSON_ARRAY, 2},  // "[]" ends the walk
        {"ftp_servers[1]->port", JSON_INTEGER, 0}, {"ftp_servers[2]", JSON_NONE, 0}, {"obj->missing", JSON_NONE, 0},
        {"ftp_servers[x]->port", JSON_INTEGER, 0}, {"ftp_servers[x]->url", JSON_NONE, 0},  // [x] reads as [0]
        {"list[1][2]", JSON_INTEGER, 0}, {"status[0]", JSON_NONE, 0}, {"[0]", JSON_NONE, 0}, {"[]", JSON_NONE, 0},
        {"grid[1]", JSON_ARRAY, 3}, {"grid[1]->[2]", JSON_INTEGER, 0}, {"grid[0]->[2]", JSON_NONE, 0},
        {"missing[]", JSON_NONE, 0},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(c.type, doc.getType(c.in)) << c.in;
        EXPECT_EQ(c.size, doc.getArraySize(c.in)) << c.in;
    }
}

TEST(JsonPath, RemovalTakesTheNamedMemberAndRenumbersArrays) {
    const struct { const char* in; const char* path; int result; const char* want; } kCases[] = {
        {R"({"a":1,"b":2,"c":3})", "b", 0, R"({"a":1,"c":3})"},
        {R"({"a":1,"b":2})", "z", -1, R"({"a":1,"b":2})"},
        {R"({"l":[1,2,3]})", "l[0]", 0, R"({"l":[2,3]})"},
        {R"({"l":[1,2,3]})", "l[1]", 0, R"({"l":[1,3]})"},
        {R"({"a":1,"a":2,"a":3})", "a", 0, R"({"a":2})"},  // every other one of a run of duplicates
    };
    for (const auto& c : kCases) {
        JsonDocument doc;
        ASSERT_EQ(0, doc.loadDocument(c.in, strlen(c.in)));
        EXPECT_EQ(c.result, doc.removeValue(c.path)) << c.in << " " << c.path;
        EXPECT_EQ(c.want, ts::written(doc)) << c.in << " " << c.path;
    }
}
