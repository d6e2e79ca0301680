// Obfuscation on the forms a server's text holds; which writers apply it is proved end to end.
#include "privacy/obfuscation.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "test_support.h"

namespace {

privacy::ObfuscationMap configuredMap() {
    privacy::ObfuscationSettings settings;
    settings.hostName = "db01";
    settings.fqdn = "db01.corp.example.com";
    settings.domains = {"lab.acme.test"};
    settings.hostsFileNames = {"localhost", "ip6-localhost", "backup01.corp.example.com", "backup01", "nas"};
    settings.users = {"alice", "svc_backup"};
    settings.keywords = {"Acme"};
    privacy::ObfuscationMap map;
    map.configure(settings);
    return map;
}

std::string filtered(privacy::ObfuscationMap& map, const std::string& text, size_t chunk,
                     privacy::ObfuscationCounts* counts = nullptr) {
    privacy::ObfuscationFilter filter(map);
    std::string out;
    for (size_t at = 0; at < text.size(); at += chunk) filter.feed(text.data() + at, std::min(chunk, text.size() - at), out);
    filter.finish(out);
    if (counts != nullptr) *counts = filter.counts();
    return out;
}

const std::string DATA = GATR_TEST_DATA "/obfuscation/";

TEST(Obfuscation, SampleComesOutAsWrittenWhateverTheChunking) {
    const std::string sample = ts::readFile(DATA + "sample.txt");
    const std::string want = ts::readFile(DATA + "sample.expected");
    for (size_t chunk : {1, 2, 3, 7, 64, 4096, 1 << 20}) {
        privacy::ObfuscationMap map = configuredMap();
        EXPECT_EQ(want, filtered(map, sample, chunk)) << chunk;
    }
}

TEST(Obfuscation, KeptValuesAndWholeTokensOnly) {
    const char* const kept[] = {
        "127.0.0.53", "0.0.0.0", "255.255.255.255", "netmask 255.255.254.0", "1.3.6.1.4.1.2021", "2.3.3.1.4",
        "1.2.3.4.5", "v1.2.3.4", "10.0.0.1.5", "::1", "::", "00:00:00:00:00:00", "FF-FF-FF-FF-FF-FF",
        "mydb01 db01x db01-old db01.other.org db01.log", "acmes", "alice2", "12:30:45 std::vector", "localhost.localdomain",
    };
    for (const char* text : kept) {
        privacy::ObfuscationMap map = configuredMap();
        EXPECT_EQ(text, filtered(map, text, 1 << 20)) << text;
    }
    const std::string overlong = std::string(1100, 'x') + ".10.0.0.1 10.0.0.1";
    for (size_t chunk : {1, 5, 1 << 20}) {
        privacy::ObfuscationMap map = configuredMap();
        EXPECT_EQ(std::string(1100, 'x') + ".10.0.0.1 100.64.0.1", filtered(map, overlong, chunk)) << chunk;
    }
}

TEST(Obfuscation, CountsEachReplacementByKind) {
    privacy::ObfuscationMap map = configuredMap();
    privacy::ObfuscationCounts counts;
    filtered(map, "DB01 db01.CORP.example.com. 10.0.0.1 fe80::2 52:54:00:12:34:56 alice ACME 10.0.0.1", 4, &counts);
    const unsigned long long want[privacy::OBF_KIND_COUNT] = {2, 1, 2, 1, 1, 1, 1};
    for (int kind = 0; kind < privacy::OBF_KIND_COUNT; ++kind)
        EXPECT_EQ(want[kind], counts.byKind[kind]) << privacy::obfuscationKindName(kind);
    EXPECT_EQ(2u, map.usedCount(privacy::OBF_HOSTS) + map.usedCount(privacy::OBF_IPV4));
}

TEST(Obfuscation, NetworksStayTogetherAndNoTwoAddressesShare) {
    privacy::ObfuscationMap map = configuredMap();
    std::set<std::string> seen;
    for (int network = 0; network < 4; ++network) {
        std::set<std::string> prefixes4, prefixes6;
        for (int host = 1; host < 255; host += 3) {
            const std::string v4 = filtered(map, "10.9." + std::to_string(network) + "." + std::to_string(host), 64);
            const std::string v6 = filtered(map, "2001:db8:0:" + std::to_string(network) + "::" + std::to_string(host), 64);
            EXPECT_TRUE(seen.insert(v4).second && seen.insert(v6).second) << v4 << " " << v6;
            EXPECT_EQ("100.64.", v4.substr(0, 7));
            EXPECT_EQ(std::to_string(host), v4.substr(v4.rfind('.') + 1));
            prefixes4.insert(v4.substr(0, v4.rfind('.')));
            prefixes6.insert(v6.substr(0, v6.find("::")));
        }
        EXPECT_EQ(1u, prefixes4.size());
        EXPECT_EQ(1u, prefixes6.size());
        EXPECT_EQ("fd00", prefixes6.begin()->substr(0, 4));
    }
}

TEST(Obfuscation, SavedMappingLoadsToTheSameReplacements) {
    const std::string sample = ts::readFile(DATA + "sample.txt");
    privacy::ObfuscationMap first = configuredMap();
    const std::string once = filtered(first, sample, 100);
    privacy::ObfuscationMap second;  // a later run: the mapping alone knows the names seen before
    ASSERT_TRUE(second.load(first.save()));
    EXPECT_EQ(first.save(), second.save());
    EXPECT_EQ(once, filtered(second, sample, 7));
    EXPECT_EQ("100.64.3.7 fd00:0:0:2::1 52:54:00:00:00:03 host3.domain3.example",
              filtered(second, "10.99.0.7 2001:db8:ff::1 52:54:00:99:99:99 ws.other.lab.acme.test", 64));
}

TEST(Obfuscation, DamagedMappingIsRefusedWhole) {
    privacy::ObfuscationMap map = configuredMap();
    filtered(map, "db01 10.0.0.1 alice", 64);
    const std::string good = map.save();
    auto swapped = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string damaged[] = {
        "", "{}", good.substr(0, good.size() / 2), good + "x", swapped("host0", "hostX"),
        swapped("\"100.64.0.1\"", "\"10.0.0.1\""), swapped("gatr-obfuscation-map", "other"),
        swapped("\"users\": {", "\"users\": {\"bob\": \"user0\", "), swapped("\"ipv4\"", "\"ip\""),
    };
    for (const std::string& text : damaged) {
        EXPECT_FALSE(map.load(text)) << text;
        EXPECT_EQ(good, map.save()) << text;
    }
}

TEST(Obfuscation, NamesAndTheArchiveRecordTellOnlyWhatWasReplaced) {
    privacy::ObfuscationMap map = configuredMap();
    privacy::ObfuscationCounts counts;
    EXPECT_EQ("gatr_host0_20261125.tar.gz", privacy::obfuscateName(map, "gatr_DB01_20261125.tar.gz", &counts));
    EXPECT_EQ("gatr_host0.domain0.example_1.tar.gz", privacy::obfuscateName(map, "gatr_db01.corp.example.com_1.tar.gz"));
    EXPECT_EQ("/var/log/remote/host0.domain0.example/user0",
              privacy::obfuscateName(map, "/var/log/remote/db01.corp.example.com/alice", &counts));
    EXPECT_EQ(4u, counts.total());  // the second name was not asked to count
    EXPECT_EQ("{\n  \"format\": \"gatr-obfuscation-map\",\n  \"version\": 1,\n  \"hosts\": {\n    \"db01\": \"host0\"\n  },\n"
              "  \"domains\": {\n    \"corp.example.com\": \"domain0.example\"\n  },\n  \"ipv4\": {},\n  \"ipv6\": {},\n"
              "  \"mac\": {},\n  \"users\": {\n    \"alice\": \"user0\"\n  },\n  \"keywords\": {}\n}\n",
              map.saveUsed());
}

}  // namespace
