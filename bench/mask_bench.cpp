// Speed of secret masking on one core, which must keep well ahead of gzip (30-60 MB/s a core)
// so that masking every member costs the archive nothing: 256 MiB of logs and configuration,
// generated in memory, fed to the filter in the archive writer's 64 KiB reads.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "privacy/masking.h"

namespace {

constexpr size_t TEXT_SIZE = 256u << 20;
constexpr size_t READ_SIZE = 64u << 10;

/// Log lines as services write them: time stamps, levels, key=value pairs, stack traces, a URL,
/// and now and then a secret.
void appendLog(std::string& text, unsigned i) {
    char line[512];
    switch (i % 8) {
        case 0:
            snprintf(line, sizeof line, "2026-11-%02u %02u:%02u:%02u.%03u INFO  [worker-%u] com.brimwell.orb.JobRunner: job %u block %u written %u bytes in %u ms\n",
                     1 + i % 28, i % 24, i % 60, (i / 7) % 60, i % 1000, i % 16, i % 500, i * 7, i * 13 % 100000, i % 5000);
            break;
        case 1:
            snprintf(line, sizeof line, "Nov 25 09:%02u:%02u backup1 orbd[%u]: session=%u user=ops state=active retries=0 elapsed=%ums\n",
                     i % 60, (i / 3) % 60, 1000 + i % 9000, i, i % 977);
            break;
        case 2:
            snprintf(line, sizeof line, "\tat com.brimwell.orb.net.Channel.read(Channel.java:%u)\n", 100 + i % 400);
            break;
        case 3:
            snprintf(line, sizeof line, "192.0.2.%u - - [25/Nov/2026:09:12:%02u +0000] \"GET /api/v1/jobs/%u?page=%u HTTP/1.1\" 200 %u \"-\" \"curl/8.5.0\"\n",
                     i % 255, i % 60, i % 5000, i % 9, i % 65536);
            break;
        case 4:
            snprintf(line, sizeof line, "2026-11-25T09:12:%02uZ WARN retrying https://api.example/v1/volumes/%u after timeout (attempt %u)\n",
                     i % 60, i % 800, i % 5);
            break;
        case 5:
            snprintf(line, sizeof line, "{\"ts\":\"2026-11-25T09:12:%02uZ\",\"level\":\"debug\",\"msg\":\"chunk stored\",\"chunk\":%u,\"size\":%u,\"dedup\":true}\n",
                     i % 60, i, i % 4096);
            break;
        case 6:
            snprintf(line, sizeof line, i % 64 == 6 ? "2026-11-25 09:12:%02u DEBUG login user=ops password=s%08u result=ok\n"
                                                    : "2026-11-25 09:12:%02u DEBUG cache hit ratio %u%% for tenant %u\n",
                     i % 60, i % 100, i);
            break;
        default:
            snprintf(line, sizeof line, "2026-11-25 09:12:%02u ERROR volume vol-%u: I/O error on block %u, will retry\n", i % 60, i % 300, i);
    }
    text += line;
}

/// A configuration file's worth: properties, YAML and XML, with a few secrets among settings.
void appendConfiguration(std::string& text, unsigned i) {
    char block[1024];
    snprintf(block, sizeof block,
             "# orb node %u\norb.node.name=node-%u\norb.node.port=%u\norb.db.url=jdbc:postgresql://db%u.example:5432/orb\n"
             "orb.db.user=orb\norb.db.password=sample%u\nkeyboard.layout=us\ntoken.expiry.seconds=3600\n"
             "server:\n  port: %u\n  ssl:\n    key-store: /opt/orb/etc/node%u.p12\n    key-store-password: sample%u\n"
             "<Connector port=\"%u\" SSLEnabled=\"true\" keystoreFile=\"/opt/orb/conf/ks\" keystorePass=\"sample%u\"/>\n",
             i, i, 8000 + i % 1000, i % 4, i, 8443 + i % 100, i, i, 9443 + i % 100, i);
    text += block;
}

/// Logs with a configuration file every 200 lines, or (`configuration`) configuration alone.
std::string generateText(bool configuration) {
    std::string text;
    text.reserve(TEXT_SIZE + 4096);
    for (unsigned i = 0; text.size() < TEXT_SIZE; ++i) {
        if (configuration || i % 200 == 199) {
            appendConfiguration(text, i);
        } else {
            appendLog(text, i);
        }
    }
    return text;
}

void maskText(benchmark::State& state, const std::string& text) {
    std::string out;
    out.reserve(READ_SIZE * 2);
    unsigned long long masked = 0;
    for (auto _ : state) {
        privacy::MaskingFilter filter;
        for (size_t at = 0; at < text.size(); at += READ_SIZE) {
            out.clear();
            filter.feed(text.data() + at, text.size() - at < READ_SIZE ? text.size() - at : READ_SIZE, out);
            benchmark::DoNotOptimize(out.data());
        }
        filter.finish(out);
        masked = filter.counts().total();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.counters["MiB"] = static_cast<double>(text.size() >> 20);
    state.counters["masked"] = static_cast<double>(masked);
}
void BM_MaskMixedLogsAndConfiguration(benchmark::State& state) { maskText(state, generateText(false)); }
void BM_MaskConfigurationOnly(benchmark::State& state) { maskText(state, generateText(true)); }
BENCHMARK(BM_MaskMixedLogsAndConfiguration)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_MaskConfigurationOnly)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
