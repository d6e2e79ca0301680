// Speed of obfuscation on one core, over 32 MiB of text like the logs a server holds: system log
// lines naming hosts, users and peers by name and address, interface listings with MACs and
// IPv6, web and SNMP lines, application lines with numbers, times and versions. A server talks
// with a bounded set of peers, met again and again; the counters tell how many distinct values
// of each kind the corpus holds. Measured alone, after masking, and as a member is packed (masking, then
// obfuscation, then gzip at its default level) against the same packing without obfuscation.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "privacy/masking.h"
#include "privacy/obfuscation.h"

namespace {

constexpr size_t CORPUS_BYTES = 32u << 20;
constexpr size_t CHUNK = 64 * 1024;  // what the archive writer reads at a time

std::string logCorpus() {
    std::string text;
    char line[512];
    for (unsigned i = 0; text.size() < CORPUS_BYTES; ++i) {
        switch (i % 6) {
        case 0:
            snprintf(line, sizeof line, "Nov 25 10:%02u:%02u db01 sshd[%u]: Accepted publickey for alice from "
                     "10.20.%u.%u port %u ssh2: RSA SHA256:3q2+7w%uAbCdEf\n", i / 60 % 60, i % 60, 1000 + i % 9000,
                     i % 7, i % 250 + 1, 40000 + i % 20000, i);
            break;
        case 1:
            snprintf(line, sizeof line, "2026-11-25T10:00:%02u.%03uZ INFO  [worker-%u] com.brimwell.orb.JobRunner - job "
                     "%u finished: %u files, %u bytes in %u ms (version 2.3.3.%u)\n", i % 60, i % 1000, i % 16, i,
                     i % 5000, i * 37, i % 90000, i % 9);
            break;
        case 2:
            snprintf(line, sizeof line, "    link/ether 52:54:00:1a:%02x:%02x brd ff:ff:ff:ff:ff:ff\n"
                     "    inet6 2001:db8:%x::%x/64 scope global dynamic\n", i % 8, i % 7, i % 3, i % 97);
            break;
        case 3:
            snprintf(line, sizeof line, "Nov 25 10:00:%02u DB01 kernel: [%u.%06u] nfs: server nas%u.corp.example.com "
                     "not responding, still trying\n", i % 60, i % 100000, i % 1000000, i % 4);
            break;
        case 4:
            snprintf(line, sizeof line, "GET /api/v1/jobs/%u?page=%u HTTP/1.1 200 %u \"-\" \"curl/7.88.1\" "
                     "rt=0.%03u uct=0.000 password=hunter%u\n", i, i % 50, i % 65536, i % 1000, i % 10);
            break;
        default:
            snprintf(line, sizeof line, "snmpd[%u]: Connection from UDP: [192.168.%u.%u]:161->[10.20.0.5]:%u "
                     "OID 1.3.6.1.4.1.2021.%u\n", i % 30000, i % 8, i % 200, 30000 + i % 999, i % 11);
            break;
        }
        text += line;
    }
    return text;
}

const std::string& corpus() {
    static const std::string text = logCorpus();
    return text;
}

privacy::ObfuscationSettings machine() {
    privacy::ObfuscationSettings settings;
    settings.hostName = "db01";
    settings.fqdn = "db01.corp.example.com";
    settings.hostsFileNames = {"localhost", "backup01.corp.example.com", "backup01", "nas0"};
    settings.users = {"alice", "bob", "carol"};
    settings.keywords = {"Acme", "Northwind"};
    return settings;
}

template <class Run>
void runChunked(benchmark::State& state, Run run) {
    const std::string& text = corpus();
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (auto _ : state) {
        out.clear();
        run(text, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_MaskOnly(benchmark::State& state) {
    runChunked(state, [](const std::string& text, std::string& out) {
        privacy::MaskingFilter masking;
        for (size_t at = 0; at < text.size(); at += CHUNK)
            masking.feed(text.data() + at, std::min(CHUNK, text.size() - at), out);
        masking.finish(out);
    });
}

void BM_ObfuscateOnly(benchmark::State& state) {
    privacy::ObfuscationMap map;
    map.configure(machine());
    runChunked(state, [&map](const std::string& text, std::string& out) {
        privacy::ObfuscationFilter filter(map);
        for (size_t at = 0; at < text.size(); at += CHUNK)
            filter.feed(text.data() + at, std::min(CHUNK, text.size() - at), out);
        filter.finish(out);
    });
}

void BM_MaskThenObfuscate(benchmark::State& state) {
    privacy::ObfuscationMap map;
    map.configure(machine());
    runChunked(state, [&map](const std::string& text, std::string& out) {
        privacy::MaskingFilter first;
        privacy::ObfuscationFilter second(map);
        privacy::FilterChain chain(first, second);
        for (size_t at = 0; at < text.size(); at += CHUNK)
            chain.feed(text.data() + at, std::min(CHUNK, text.size() - at), out);
        chain.finish(out);
    });
}

/// Masking, then obfuscation when asked, then gzip at its default level, as a packed member goes.
void packMember(const std::string& text, std::string& out, privacy::ObfuscationMap* map) {
    z_stream zip = {};
    deflateInit2(&zip, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    privacy::MaskingFilter masking;
    std::string masked, filtered;
    std::unique_ptr<privacy::ObfuscationFilter> obfuscation(map ? new privacy::ObfuscationFilter(*map) : nullptr);
    std::vector<unsigned char> packed(CHUNK * 2);
    auto compress = [&](const std::string& bytes, int flush) {
        zip.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
        zip.avail_in = static_cast<uInt>(bytes.size());
        do {
            zip.next_out = packed.data();
            zip.avail_out = static_cast<uInt>(packed.size());
            deflate(&zip, flush);
            out.append(reinterpret_cast<char*>(packed.data()), packed.size() - zip.avail_out);
        } while (zip.avail_out == 0);
    };
    for (size_t at = 0; at <= text.size(); at += CHUNK) {
        bool last = at + CHUNK > text.size();
        masked.clear();
        filtered.clear();
        if (at < text.size()) masking.feed(text.data() + at, std::min(CHUNK, text.size() - at), masked);
        if (last) masking.finish(masked);
        if (obfuscation) {
            obfuscation->feed(masked.data(), masked.size(), filtered);
            if (last) obfuscation->finish(filtered);
        }
        compress(obfuscation ? filtered : masked, last ? Z_FINISH : Z_NO_FLUSH);
    }
    deflateEnd(&zip);
}

void BM_MaskAndPack(benchmark::State& state) {
    runChunked(state, [](const std::string& text, std::string& out) { packMember(text, out, nullptr); });
}

void BM_MaskObfuscateAndPack(benchmark::State& state) {
    privacy::ObfuscationMap map;
    map.configure(machine());
    runChunked(state, [&map](const std::string& text, std::string& out) { packMember(text, out, &map); });
    for (int kind = 0; kind < privacy::OBF_KIND_COUNT; ++kind)
        state.counters[privacy::obfuscationKindName(kind)] = static_cast<double>(map.usedCount(kind));
}

}  // namespace

BENCHMARK(BM_MaskAndPack)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MaskObfuscateAndPack)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MaskOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ObfuscateOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MaskThenObfuscate)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
