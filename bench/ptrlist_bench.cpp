// UtCPtrList beside std::vector<void*> in one run: local edits near a slowly moving cursor (the
// case the gap buffer is for), inserts at random places, an indexed scan, appends.
// Run: build/release/bench/ptrlist_bench
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kbase/text/UtCPtrList.h"
#include "ratio_reporter.h"

namespace {

void* P(uint64_t n) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(n));
}

// A small fixed-seed generator, the same sequence for both contenders.
struct Lcg {
    uint64_t s = 88172645463325252ull;
    uint32_t operator()() {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(s >> 33);
    }
};

// The positions of one local edit: an insert and a removal within +-16 of a cursor that moves
// one place every 64 edits and wraps around inside the list.
struct LocalEdits {
    long n;
    long cursor;
    long steps = 0;
    Lcg rng;
    explicit LocalEdits(long size) : n(size), cursor(size / 2) {}
    void Next(long* insertAt, long* removeAt) {
        if (++steps % 64 == 0 && ++cursor > n - 17) cursor = 16;
        *insertAt = cursor + static_cast<long>(rng() % 33) - 16;
        *removeAt = cursor + static_cast<long>(rng() % 33) - 16;
    }
};

void BM_LocalEdits_PtrList(benchmark::State& state) {
    const long n = state.range(0);
    UtCPtrList list;
    for (long i = 0; i < n; ++i) list.Append(P(i));
    LocalEdits edits(n);
    for (auto _ : state) {
        long ins, rem;
        edits.Next(&ins, &rem);
        list.Insert(ins, P(ins));
        list.Remove(rem);
    }
    benchmark::DoNotOptimize(list.item(n / 2));
    state.SetItemsProcessed(state.iterations() * 2);
}

void BM_LocalEdits_Vector(benchmark::State& state) {
    const long n = state.range(0);
    std::vector<void*> v;
    for (long i = 0; i < n; ++i) v.push_back(P(i));
    LocalEdits edits(n);
    for (auto _ : state) {
        long ins, rem;
        edits.Next(&ins, &rem);
        v.insert(v.begin() + ins, P(ins));
        v.erase(v.begin() + rem);
    }
    benchmark::DoNotOptimize(v[n / 2]);
    state.SetItemsProcessed(state.iterations() * 2);
}

void BM_RandomInsert_PtrList(benchmark::State& state) {
    const long n = state.range(0);
    for (auto _ : state) {
        UtCPtrList list;
        Lcg rng;
        for (long i = 0; i < n; ++i)
            list.Insert(static_cast<long>(rng() % (list.count() + 1)), P(i));
        benchmark::DoNotOptimize(list.item(0));
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_RandomInsert_Vector(benchmark::State& state) {
    const long n = state.range(0);
    for (auto _ : state) {
        std::vector<void*> v;
        Lcg rng;
        for (long i = 0; i < n; ++i)
            v.insert(v.begin() + static_cast<long>(rng() % (v.size() + 1)), P(i));
        benchmark::DoNotOptimize(v[0]);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// Every item read through its index. Argument 1 places the list's gap: 0 at the end (after
// appends), 1 in the middle. Argument 2 is the loop body: 0 hands each item to an opaque
// consumer that may change any memory (so every field is read again for every item, the strict
// case), 1 folds the items into a running hash (a body that leaves memory alone).
template <typename Get>
void Scan(benchmark::State& state, long n, Get get) {
    if (state.range(2) == 0) {
        for (auto _ : state) {
            for (long i = 0; i < n; ++i) {
                void* const item = get(i);
                benchmark::DoNotOptimize(item);
                benchmark::ClobberMemory();
            }
        }
    } else {
        for (auto _ : state) {
            uint64_t h = 14695981039346656037ull;
            for (long i = 0; i < n; ++i)
                h = (h ^ reinterpret_cast<uintptr_t>(get(i))) * 1099511628211ull;
            benchmark::DoNotOptimize(h);
        }
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_Scan_PtrList(benchmark::State& state) {
    const long n = state.range(0);
    UtCPtrList list;
    for (long i = 0; i < n; ++i) list.Append(P(i));
    if (state.range(1) != 0) {
        list.Insert(n / 2, P(0));
        list.Remove(n / 2);
    }
    Scan(state, n, [&list](long i) { return list[i]; });
}

void BM_Scan_Vector(benchmark::State& state) {
    const long n = state.range(0);
    std::vector<void*> v;
    for (long i = 0; i < n; ++i) v.push_back(P(i));
    Scan(state, n, [&v](long i) { return v[static_cast<size_t>(i)]; });
}

void BM_Append_PtrList(benchmark::State& state) {
    const long n = state.range(0);
    for (auto _ : state) {
        UtCPtrList list;
        for (long i = 0; i < n; ++i) list.Append(P(i));
        benchmark::DoNotOptimize(list.item(n - 1));
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_Append_Vector(benchmark::State& state) {
    const long n = state.range(0);
    for (auto _ : state) {
        std::vector<void*> v;
        for (long i = 0; i < n; ++i) v.push_back(P(i));
        benchmark::DoNotOptimize(v[static_cast<size_t>(n - 1)]);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

BENCHMARK(BM_LocalEdits_PtrList)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_LocalEdits_Vector)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_RandomInsert_PtrList)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RandomInsert_Vector)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Scan_PtrList)->ArgsProduct({{1000000}, {0, 1}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Scan_Vector)->ArgsProduct({{1000000}, {0}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Append_PtrList)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Append_Vector)->Arg(1000000)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("local edits, N=100k (goal >= 100x)", "BM_LocalEdits_PtrList/100000",
                     "BM_LocalEdits_Vector/100000");
    reporter.AddPair("local edits, N=1M (goal >= 100x)", "BM_LocalEdits_PtrList/1000000",
                     "BM_LocalEdits_Vector/1000000");
    reporter.AddPair("random inserts, N=20k (goal >= 1/1.2)", "BM_RandomInsert_PtrList/20000",
                     "BM_RandomInsert_Vector/20000");
    for (const char* body : {"0", "1"}) {
        const std::string what = body[0] == '0' ? "opaque consumer" : "running hash";
        for (const char* gap : {"0", "1"}) {
            reporter.AddPair(std::string("indexed scan, N=1M, ") + what +
                                 (gap[0] == '0' ? ", gap at end" : ", gap mid") +
                                 " (goal >= 1/1.1)",
                             std::string("BM_Scan_PtrList/1000000/") + gap + "/" + body,
                             std::string("BM_Scan_Vector/1000000/0/") + body);
        }
    }
    reporter.AddPair("append, N=1M (goal >= 1/1.5)", "BM_Append_PtrList/1000000",
                     "BM_Append_Vector/1000000");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
