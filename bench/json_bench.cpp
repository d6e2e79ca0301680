// Speed of the JSON library on the documents the tool handles: a REST answer of 16 KiB
// parsed and written, and the jobs report's indexed reads across a 1,000-job answer.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "json/jsonparser.h"

namespace {

/// A jobs answer like the backup product's: `jobs` objects with volumes, a schedule of
/// rules with day offsets, texts with escapes and numbers of every kind.
std::string jobsAnswer(int jobs) {
    std::string text = "[";
    for (int i = 0; i < jobs; ++i) {
        char job[1024];
        std::snprintf(job, sizeof job,
                      "%s{\"id\":%d,\"name\":\"nightly \\\"full\\\" %d\",\"enabled\":true,"
                      "\"ratio\":0.%03d,\"bytes\":1.%02de+09,\"comment\":null,"
                      "\"volumes\":[{\"vol_id\":\"vol-%d-a\",\"image_prefix\":\"C:\\\\img\\\\%d\"},"
                      "{\"vol_id\":\"vol-%d-b\",\"image_prefix\":\"/img/%d\"}],"
                      "\"schedule\":{\"type\":\"weekly\",\"rules\":["
                      "{\"offsets\":{\"days\":[1,3,5],\"months\":[0]}},"
                      "{\"offsets\":{\"days\":[2,4,6],\"months\":[1,7]}}]}}",
                      i ? "," : "", i, i, i % 1000, i % 100, i, i, i, i);
        text += job;
    }
    return text + "]";
}

/// Jobs until the compact text reaches 16 KiB, the size of the tool's answer buffers.
std::string restAnswer() {
    int jobs = 1;
    while (jobsAnswer(jobs + 1).size() <= 16384) ++jobs;
    return jobsAnswer(jobs);
}

void BM_Parse16KiB(benchmark::State& state) {
    const std::string text = restAnswer();
    for (auto _ : state) {
        JsonDocument doc;
        int result = doc.loadDocument(text.c_str(), text.size());
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.counters["text_bytes"] = static_cast<double>(text.size());
}
BENCHMARK(BM_Parse16KiB);

void BM_Write16KiB(benchmark::State& state) {
    const std::string text = restAnswer();
    JsonDocument doc;
    doc.loadDocument(text.c_str(), text.size());
    const auto format = static_cast<json_format_t>(state.range(0));
    static char buffer[65536];
    size_t written = 0;
    for (auto _ : state) {
        doc.writeDocument(format, buffer, sizeof buffer);
        benchmark::ClobberMemory();
    }
    for (written = 0; written < sizeof buffer && buffer[written] != '\0'; ++written) {
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * written));
    state.counters["text_bytes"] = static_cast<double>(written);
}
BENCHMARK(BM_Write16KiB)->Arg(JSON_FORMAT_COMPACT)->Arg(JSON_FORMAT_PRETTY);

/// Reads every day offset of every rule of every job by path, as the jobs report does.
void BM_GetValueAcrossJobs(benchmark::State& state) {
    const int jobs = static_cast<int>(state.range(0));
    const std::string text = jobsAnswer(jobs);
    JsonDocument doc;
    doc.loadDocument(text.c_str(), text.size());
    char path[256];
    long reads = 0;
    for (auto _ : state) {
        long sum = 0;
        for (int i = 0; i < jobs; ++i) {
            for (int r = 0; r < 2; ++r) {
                for (int d = 0; d < 3; ++d) {
                    std::snprintf(path, sizeof path,
                                  "[%d]->schedule->rules[%d]->offsets->days[%d]", i, r, d);
                    sum += doc.getValue<int>(path);
                    ++reads;
                }
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(reads);
    state.counters["reads_per_sweep"] = jobs * 6;
}
BENCHMARK(BM_GetValueAcrossJobs)->Arg(100)->Arg(1000)->Arg(4000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
