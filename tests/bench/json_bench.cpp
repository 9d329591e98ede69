// Every reply the daemon handles is parsed whole; the installed-package listing is the largest.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/json.h"

static std::string listing(int packages) {
    std::string text = "{\"returnValue\":true,\"apps\":[";
    for (int i = 0; i < packages; ++i) {
        if (i)
            text += ",";
        text += "{\"id\":\"com.example.app" + std::to_string(i) + "\",\"version\":\"1.2." +
                std::to_string(i) + "\",\"userInstalled\":" + (i % 3 ? "false" : "true") +
                ",\"icon\":\"\\/media\\/cryptofs\\/apps\\/usr\\/velto\\/applications\\/com.example"
                ".app" +
                std::to_string(i) + "\\/icon.png\"}";
    }
    return text + "]}";
}

static void BM_ParseListing(benchmark::State &state) {
    std::string text = listing(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        JsonTree tree = jsonParse(text.c_str());
        benchmark::DoNotOptimize(tree.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}
BENCHMARK(BM_ParseListing)->Arg(10)->Arg(200)->Arg(2000);

static void BM_FindMemberInListing(benchmark::State &state) {
    std::string text = listing(200);
    JsonTree tree = jsonParse(text.c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(json_find_first_label(tree.get(), "apps"));
}
BENCHMARK(BM_FindMemberInListing);

BENCHMARK_MAIN();
