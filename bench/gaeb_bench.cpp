// A GAEB bill of 100k positions (long texts of a few hundred bytes) stored and loaded, beside
// writing and reading the same bytes with plain fwrite and fread, in one run. Goal: each within 3x
// of the plain I/O (ratio >= 0.33). The file lies in the temporary folder.
// Run: build/release/bench/gaeb_bench
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "kbase/gaeb/UtGAEB.h"
#include "ratio_reporter.h"

namespace {

constexpr int kPositions = 100000;

std::string TempPath() {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/kbase_gaeb_bench.X83";
}

// 100 ranges of 1000 positions, each with a long text of about 300 bytes.
std::unique_ptr<UtGAEB> MakeBill() {
    auto g = std::make_unique<UtGAEB>(eGAEBTypeLV);
    UtGAEBLV* lv = g->GetVergabePtr()->GetLVPtr();
    const std::string lang =
        "Mauerwerk der Au\xDF"
        "enw\xE4nde aus Kalksandstein, Rohdichteklasse 2,0, Festigkeitsklasse 20, "
        "im D\xFCnnbett versetzt, einschlie\xDFlich aller Anschl\xFCsse an angrenzende Bauteile,\n"
        "Ecken, Leibungen und Aussparungen nach Angabe des Auftraggebers; Abrechnung nach "
        "VOB/C, \xD6"
        "ffnungen \xFC"
        "ber 2,5 m2 werden abgezogen.";
    UtGAEBLVBereich* range = nullptr;
    for (int i = 0; i < kPositions; ++i) {
        if (i % 1000 == 0) {
            range = new UtGAEBLVBereich;
            range->SetOZ(std::to_string(10 + i / 1000).c_str());
            range->SetBez("Rohbauarbeiten");
            lv->AddLVEntity(range);
        }
        auto* p = new UtGAEBPosition;
        p->SetOZ((std::to_string(10 + i / 1000) + "." + std::to_string(10000 + i % 1000)).c_str());
        p->SetMenge(12.5 + i);
        p->SetME("m2");
        p->GetBeschreibungPtr()->SetKurztext(
            "Au\xDF"
            "enwand KS 24 cm");
        p->GetBeschreibungPtr()->SetLangtext(lang.c_str());
        range->AddLVEntity(p);
    }
    return g;
}

struct Data {
    std::unique_ptr<UtGAEB> bill = MakeBill();
    std::string bytes;  // what Store writes
    Data() {
        FILE* f = std::fopen(TempPath().c_str(), "w+");
        bill->SetFlag(0);
        if (f == nullptr || bill->Store(f, 0) != kGAEBOk) std::abort();
        bytes.resize(static_cast<size_t>(std::ftell(f)));
        std::rewind(f);
        if (std::fread(bytes.data(), 1, bytes.size(), f) != bytes.size()) std::abort();
        std::fclose(f);
    }
};

Data& Shared() {
    static Data d;
    return d;
}

void BM_Store_Gaeb(benchmark::State& state) {
    Data& d = Shared();
    for (auto _ : state) {
        FILE* f = std::fopen(TempPath().c_str(), "w");
        d.bill->SetFlag(1);  // Store closes the file, as in normal use
        if (d.bill->Store(f, 0) != kGAEBOk) state.SkipWithError("store failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.bytes.size()));
}

void BM_Write_Fwrite(benchmark::State& state) {
    Data& d = Shared();
    for (auto _ : state) {
        FILE* f = std::fopen(TempPath().c_str(), "w");
        if (std::fwrite(d.bytes.data(), 1, d.bytes.size(), f) != d.bytes.size())
            state.SkipWithError("write failed");
        std::fclose(f);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.bytes.size()));
}

void BM_Load_Gaeb(benchmark::State& state) {
    Data& d = Shared();
    FILE* f = std::fopen(TempPath().c_str(), "w");
    std::fwrite(d.bytes.data(), 1, d.bytes.size(), f);
    std::fclose(f);
    for (auto _ : state) {
        UtGAEB g;
        f = std::fopen(TempPath().c_str(), "r");
        if (g.Load(f) != kGAEBOk) state.SkipWithError("load failed");
        std::fclose(f);
        benchmark::DoNotOptimize(g.GetVergabePtr()->GetLVPtr()->GetLVEntityCount());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.bytes.size()));
}

void BM_Read_Fread(benchmark::State& state) {
    Data& d = Shared();
    std::vector<char> buf(d.bytes.size());
    for (auto _ : state) {
        FILE* f = std::fopen(TempPath().c_str(), "r");
        if (std::fread(buf.data(), 1, buf.size(), f) != buf.size())
            state.SkipWithError("read failed");
        std::fclose(f);
        benchmark::DoNotOptimize(buf.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.bytes.size()));
}

BENCHMARK(BM_Store_Gaeb)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write_Fwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load_Gaeb)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_Fread)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("store 100k positions vs fwrite (goal >= 0.33)", "BM_Store_Gaeb",
                     "BM_Write_Fwrite");
    reporter.AddPair("load 100k positions vs fread (goal >= 0.33)", "BM_Load_Gaeb",
                     "BM_Read_Fread");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::remove(TempPath().c_str());
    return 0;
}
