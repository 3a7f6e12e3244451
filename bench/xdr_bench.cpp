// XdrEnStream / XdrDeStream beside libtirpc's xdrstdio, on files, in one run: 8M ints, 8M
// doubles, and records of an int, a double and a short text. Each iteration writes a new file and
// reads it back. Run: build/release/bench/xdr_bench  (TMPDIR chooses the folder).
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "basert/files.h"
#include "basert/memory.h"
#include "kbase/streams/XdrStream.h"
#include "ratio_reporter.h"
#include "xdr_bench_peer.h"

namespace {

constexpr int kItems = 8 << 20;
constexpr int kRecords = 2 << 20;

std::string BenchPath(const char* name) {
    char dir[512];
    UtGetTempDir(dir, sizeof dir);
    return std::string(dir) + name;
}

const std::vector<std::string>& Texts() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> t;
        for (int i = 0; i < 64; ++i) t.push_back("wall-" + std::to_string(i * 7919) + std::string(i % 7, 'x'));
        return t;
    }();
    return texts;
}

// Writes through an XdrEnStream on a new file, then reads through an XdrDeStream.
template <typename Write, typename Read>
void OursWriteThenRead(const std::string& path, Write write, Read read) {
    FILE* f = UtFileOpen(path.c_str(), "wb");
    {
        XdrEnStream out(f);
        write(out);
    }
    UtFileClose(f);
    f = UtFileOpen(path.c_str(), "rb");
    {
        XdrDeStream in(f);
        read(in);
    }
    UtFileClose(f);
}

void BM_Ints_Ours(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_ints.xdr");
    for (auto _ : state) {
        int64_t sum = 0;
        OursWriteThenRead(
            path,
            [](XdrEnStream& out) {
                for (int i = 0; i < kItems; ++i) out << static_cast<int>(static_cast<unsigned>(i) * 2654435761u);
            },
            [&sum](XdrDeStream& in) {
                for (int i = 0; i < kItems; ++i) {
                    int v = 0;
                    in >> v;
                    sum += v;
                }
            });
        benchmark::DoNotOptimize(sum);
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Ints_Tirpc(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_ints_tirpc.xdr");
    for (auto _ : state) benchmark::DoNotOptimize(tirpc_peer::Ints(path.c_str(), kItems));
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Doubles_Ours(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_doubles.xdr");
    for (auto _ : state) {
        double sum = 0;
        OursWriteThenRead(
            path,
            [](XdrEnStream& out) {
                for (int i = 0; i < kItems; ++i) out << i * 0.5;
            },
            [&sum](XdrDeStream& in) {
                for (int i = 0; i < kItems; ++i) {
                    double v = 0;
                    in >> v;
                    sum += v;
                }
            });
        benchmark::DoNotOptimize(sum);
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Doubles_Tirpc(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_doubles_tirpc.xdr");
    for (auto _ : state) benchmark::DoNotOptimize(tirpc_peer::Doubles(path.c_str(), kItems));
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Mixed_Ours(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_mixed.xdr");
    const std::vector<std::string>& texts = Texts();
    for (auto _ : state) {
        int64_t sum = 0;
        OursWriteThenRead(
            path,
            [&texts](XdrEnStream& out) {
                for (int i = 0; i < kRecords; ++i) {
                    out << i << i * 0.25 << texts[static_cast<size_t>(i) % texts.size()].c_str();
                }
            },
            [&sum](XdrDeStream& in) {
                for (int i = 0; i < kRecords; ++i) {
                    int v = 0;
                    double d = 0;
                    char* s = nullptr;
                    in >> v >> d >> s;
                    sum += v + static_cast<int64_t>(d) + static_cast<int64_t>(s != nullptr ? std::strlen(s) : 0);
                    UtFreeMemory(s);
                }
            });
        benchmark::DoNotOptimize(sum);
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_Mixed_Tirpc(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_mixed_tirpc.xdr");
    for (auto _ : state) benchmark::DoNotOptimize(tirpc_peer::Mixed(path.c_str(), kRecords, Texts()));
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kRecords);
}

BENCHMARK(BM_Ints_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Ints_Tirpc)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Doubles_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Doubles_Tirpc)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mixed_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mixed_Tirpc)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("8M ints write+read (goal >= 10x)", "BM_Ints_Ours", "BM_Ints_Tirpc");
    reporter.AddPair("8M doubles write+read (goal >= 10x)", "BM_Doubles_Ours", "BM_Doubles_Tirpc");
    reporter.AddPair("2M mixed records write+read (goal >= 3x)", "BM_Mixed_Ours", "BM_Mixed_Tirpc");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
