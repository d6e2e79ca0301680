// The program named in spawn failure messages, taken from the command text alone.
#include "collect/spawning.h"
#include <stdexcept>
#include "test_support.h"

TEST(GetSpawnedProgram, NamesTheBaseNameOfAQuotedOrPlainProgram) {
    const struct { const char* in; size_t size; const char* want; } kCases[] = {
        {"ls -l", 64, "ls"}, {"/usr/bin/ls -l /tmp", 64, "ls"}, {"\"/opt/x y/bin/tool\" --all", 64, "tool"},
        {"\"tool\"", 64, "tool"}, {"/usr/bin/ x", 64, ""}, {"abcdefghijk -x", 8, "abcdefg"},
        {"/opt/bin/tool -x", 8, "bi"},  // cut first, base name after
        {"lsmod", 64, "throws malformed command: no space after program found"},
        {"\"/opt/x y/bin/tool --all", 64, "throws malformed command: no closing double quote found"},
    };
    for (const auto& c : kCases) {
        char buffer[64];
        std::string got;
        try {
            got = getSpawnedProgram(c.in, buffer, c.size);
        } catch (const std::runtime_error& e) {
            got = std::string("throws ") + e.what();
        }
        EXPECT_EQ(c.want, got) << c.in;
    }
}
