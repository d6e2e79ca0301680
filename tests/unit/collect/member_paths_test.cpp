// Names as the archive rules see them; that refused names are left out of a run is proved end to end.
#include "collect/member_paths.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(MemberPaths, NamesAreResolvedByNameAlone) {
    const char* const cases[][2] = {
        {"/etc/opt/../../proc/self/environ", "/proc/self/environ"}, {"//var///log/./messages/", "/var/log/messages"},
        {"/../..", "/"}, {"/", "/"}, {"a/../../b", "../b"}, {"./--name", "--name"}, {"x/.", "x"}, {".", "."},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], normalisePath(c[0])) << c[0];
}

TEST(MemberPaths, KernelTreesAreRefusedAsFoldersAndSecretsAsFiles) {
    const struct { const char* path; bool folder; bool refused; } cases[] = {
        {"/", true, true}, {"/proc", true, true}, {"/sys/kernel", true, true}, {"/run/user", true, true},
        {"/dev", true, true}, {"/proc/meminfo", false, false}, {"/dev/zero", false, false},
        {"/proc/1/environ", false, true}, {"/proc/self/task/1/mem", false, true}, {"/process", true, false},
        {"/var/log/mem", false, false}, {"/etc/environ", false, false}, {"/running", true, false},
    };
    for (const auto& c : cases) EXPECT_EQ(c.refused, refusalReason(c.path, c.folder) != nullptr) << c.path;
}

}  // namespace
