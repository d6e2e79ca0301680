// The machine's facts for obfuscation: the hosts file's names and the configured lists.
#include "collect/obfuscation_facts.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <algorithm>

#include "test_support.h"

namespace {

TEST(ObfuscationFacts, HostsFileGivesTheQualifiedNameAndEveryNameConfiguredListsJoin) {
    struct utsname names = {};
    ASSERT_EQ(0, uname(&names));
    const std::string host = names.nodename;
    ts::TempDir folder;
    const std::string hosts = folder.write("hosts", "127.0.0.1 localhost # loopback\n\n10.1.1.1  nas2 nas2.lab # a peer\n"
                                                    "10.1.1.9\t" + host + ".corp.example.com " + host + "\n");
    work::obfuscation = {{"lab.test"}, {"svc"}, {"Acme"}};
    const privacy::ObfuscationSettings facts = gatherObfuscationFacts(hosts.c_str());
    work::obfuscation = {};
    EXPECT_EQ(host, facts.hostName);
    EXPECT_EQ(host.find('.') == std::string::npos ? host + ".corp.example.com" : host, facts.fqdn);
    EXPECT_EQ((std::vector<std::string>{"localhost", "nas2", "nas2.lab", host + ".corp.example.com", host}),
              facts.hostsFileNames);
    EXPECT_EQ(std::vector<std::string>{"lab.test"}, facts.domains);
    EXPECT_EQ(std::vector<std::string>{"Acme"}, facts.keywords);
    EXPECT_EQ("svc", facts.users.back());
    EXPECT_EQ(facts.users.end(), std::find(facts.users.begin(), facts.users.end(), "nobody"));
}

}  // namespace
