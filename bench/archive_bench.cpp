// Benchmarks of the archive layer: a full GetStartPosition/GetNextAssoc pass over
// string maps of growing size (the cost per entry must stay flat), next to a plain
// in-order walk of the same standard map as the memory-hierarchy baseline, and a
// round trip of a large string array through a memory file.
#include "archive/arcobj.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

std::string KeyFor(int i) {
    char buf[32];
    std::snprintf(buf, sizeof(buf), "pkg-%08d\\Vendor\\1.%d", i, i % 97);
    return buf;
}

void BM_MapFullPass(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    CMapStringToOb map;
    for (int i = 0; i < n; ++i) map.SetAt(KeyFor(i), nullptr);
    std::string key;
    CObject* value = nullptr;
    for (auto _ : state) {
        int seen = 0;
        POSITION pos = map.GetStartPosition();
        while (pos) {
            map.GetNextAssoc(pos, key, value);
            ++seen;
        }
        benchmark::DoNotOptimize(seen);
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations() * n);
    state.counters["ns_per_entry"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * n, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_MapFullPass)->Arg(10000)->Arg(100000)->Arg(200000)->Unit(benchmark::kMillisecond);

// The same pass over a bare standard map: what the container alone costs per entry.
void BM_StdMapBaseline(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    std::map<std::string, CObject*> map;
    for (int i = 0; i < n; ++i) map.emplace(KeyFor(i), nullptr);
    std::string key;
    CObject* value = nullptr;
    for (auto _ : state) {
        for (const auto& entry : map) {
            key = entry.first;
            value = entry.second;
            benchmark::DoNotOptimize(key.data());
        }
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations() * n);
    state.counters["ns_per_entry"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * n, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_StdMapBaseline)->Arg(10000)->Arg(100000)->Arg(200000)->Unit(benchmark::kMillisecond);

void BM_StringArrayMemFileRoundTrip(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    CStringArray source;
    for (int i = 0; i < n; ++i) source.Add(KeyFor(i));
    for (auto _ : state) {
        CMemFile out(1024);
        {
            CArchive ar(&out, CArchive::store, 4096);
            source.Serialize(ar);
            ar.Close();
        }
        const auto len = static_cast<unsigned int>(out.GetLength());
        unsigned char* block = out.Detach();
        CStringArray loaded;
        {
            CMemFile in(block, len, 0);
            CArchive ar(&in, CArchive::load, 4096);
            loaded.Serialize(ar);
        }
        std::free(block);
        if (loaded.GetSize() != n) state.SkipWithError("round trip lost strings");
        benchmark::DoNotOptimize(loaded);
    }
    state.SetItemsProcessed(state.iterations() * n);
    state.counters["ns_per_entry"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * n, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_StringArrayMemFileRoundTrip)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
