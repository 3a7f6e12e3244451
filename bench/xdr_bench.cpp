// XdrEnStream / XdrDeStream beside libtirpc's xdrstdio, on files, in one run: 8M ints and 8M
// doubles written from an array and read back into one, and 2M records of an int, a double and
// a short text. Each iteration writes a new file and reads it back.
// Run: build/release/bench/xdr_bench  (TMPDIR chooses the folder).
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

const std::vector<int>& Ints(int n) {
    static std::vector<int> v;
    if (v.size() != static_cast<size_t>(n)) {
        v.resize(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i)
            v[static_cast<size_t>(i)] = static_cast<int>(static_cast<unsigned>(i) * 2654435761u);
    }
    return v;
}

const std::vector<double>& Doubles(int n) {
    static std::vector<double> v;
    if (v.size() != static_cast<size_t>(n)) {
        v.resize(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) v[static_cast<size_t>(i)] = i * 0.5;
    }
    return v;
}

const std::vector<std::string>& Texts() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> t;
        for (int i = 0; i < 64; ++i)
            t.push_back("wall-" + std::to_string(i * 7919) + std::string(i % 7, 'x'));
        return t;
    }();
    return texts;
}

// Writes through an XdrEnStream on a new file, then reads through an XdrDeStream.
template <typename Write, typename Read>
void OursWriteThenRead(const std::string& path, Write write, Read read) {
    std::remove(path.c_str());  // a new file: truncating one makes ext4 write it out on close
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
    const std::vector<int>& in = Ints(kItems);
    std::vector<int> out(in.size());
    for (auto _ : state) {
        OursWriteThenRead(
            path,
            [&](XdrEnStream& s) {
                for (int v : in) s << v;
            },
            [&](XdrDeStream& s) {
                for (int& v : out) s >> v;
            });
        benchmark::DoNotOptimize(out.data());
    }
    if (out != in) state.SkipWithError("read back differs");
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Ints_Tirpc(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_ints_tirpc.xdr");
    const std::vector<int>& in = Ints(kItems);
    std::vector<int> out(in.size());
    for (auto _ : state) {
        if (!tirpc_peer::Ints(path.c_str(), in, out)) state.SkipWithError("libtirpc failed");
        benchmark::DoNotOptimize(out.data());
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Doubles_Ours(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_doubles.xdr");
    const std::vector<double>& in = Doubles(kItems);
    std::vector<double> out(in.size());
    for (auto _ : state) {
        OursWriteThenRead(
            path,
            [&](XdrEnStream& s) {
                for (double v : in) s << v;
            },
            [&](XdrDeStream& s) {
                for (double& v : out) s >> v;
            });
        benchmark::DoNotOptimize(out.data());
    }
    if (out != in) state.SkipWithError("read back differs");
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Doubles_Tirpc(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_doubles_tirpc.xdr");
    const std::vector<double>& in = Doubles(kItems);
    std::vector<double> out(in.size());
    for (auto _ : state) {
        if (!tirpc_peer::Doubles(path.c_str(), in, out)) state.SkipWithError("libtirpc failed");
        benchmark::DoNotOptimize(out.data());
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Mixed_Ours(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_mixed.xdr");
    const std::vector<int>& ints = Ints(kRecords);
    const std::vector<double>& doubles = Doubles(kRecords);
    const std::vector<std::string>& texts = Texts();
    for (auto _ : state) {
        int64_t total = 0;
        OursWriteThenRead(
            path,
            [&](XdrEnStream& s) {
                for (size_t i = 0; i < ints.size(); ++i)
                    s << ints[i] << doubles[i] << texts[i % texts.size()].c_str();
            },
            [&](XdrDeStream& s) {
                int64_t local = 0;
                for (size_t i = 0; i < ints.size(); ++i) {
                    int v = 0;
                    double d = 0;
                    char* text = nullptr;
                    s >> v >> d >> text;
                    local += v + static_cast<int64_t>(d) +
                             static_cast<int64_t>(text != nullptr ? std::strlen(text) : 0);
                    UtFreeMemory(text);
                }
                total = local;
            });
        benchmark::DoNotOptimize(total);
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_Mixed_Tirpc(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_mixed_tirpc.xdr");
    const std::vector<int>& ints = Ints(kRecords);
    const std::vector<double>& doubles = Doubles(kRecords);
    for (auto _ : state) {
        int64_t total = 0;
        if (!tirpc_peer::Mixed(path.c_str(), ints, doubles, Texts(), &total))
            state.SkipWithError("libtirpc failed");
        benchmark::DoNotOptimize(total);
    }
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
