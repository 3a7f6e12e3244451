// A GAEB bill of 100k positions (long texts of a few hundred bytes) stored and loaded, beside
// writing and reading the same bytes with plain fwrite and fread, in one run. Goal: each within 3x
// of the plain I/O (ratio >= 0.33). Loading is also put beside the least a reader of a line format
// pays (the bytes cut into lines, and that with one allocation per node of the tree), which says
// how far the parser is from its floor. The file lies in the temporary folder. Run:
// build/release/bench/gaeb_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
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

// The floor any reader of a line format pays: the bytes read and cut into lines. The second adds
// the allocations of the tree this bill becomes, without reading a single value: per position and
// range an object of the model's size (zeroed, as a constructor does), per long and short text a
// string of the line; all freed again, as the load's tree is.
size_t SplitLines(const std::vector<char>& buf, bool nodes) {
    size_t lines = 0;
    std::vector<std::unique_ptr<char[]>> tree;
    std::vector<std::string> texts;
    const char* p = buf.data();
    const char* end = p + buf.size();
    while (p < end) {
        const char* eol = static_cast<const char*>(std::memchr(p, '\n', end - p));
        if (eol == nullptr) eol = end;
        ++lines;
        if (nodes) {
            std::string_view line(p, static_cast<size_t>(eol - p));
            line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
            size_t size = 0;
            if (line.starts_with("#begin[Position]")) {
                size = sizeof(UtGAEBPosition);
            } else if (line.starts_with("#begin[LVBereich]")) {
                size = sizeof(UtGAEBLVBereich);
            } else if (line.starts_with("[Langtext]") || line.starts_with("[Kurztext]")) {
                texts.emplace_back(line);
            }
            if (size != 0) {
                tree.emplace_back(new char[size]);
                std::memset(tree.back().get(), 0, size);
            }
        }
        p = eol + 1;
    }
    return lines + tree.size() + texts.size();
}

// What a read pays at least: the bytes alone, cut into lines, or that with the tree's allocations.
enum class Floor { kBytes, kLines, kTree };

void ReadFloor(benchmark::State& state, Floor floor) {
    Data& d = Shared();
    std::vector<char> buf(d.bytes.size());
    for (auto _ : state) {
        FILE* f = std::fopen(TempPath().c_str(), "r");
        if (std::fread(buf.data(), 1, buf.size(), f) != buf.size())
            state.SkipWithError("read failed");
        std::fclose(f);
        if (floor != Floor::kBytes)
            benchmark::DoNotOptimize(SplitLines(buf, floor == Floor::kTree));
        benchmark::DoNotOptimize(buf.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.bytes.size()));
}

void BM_Read_Fread(benchmark::State& state) {
    ReadFloor(state, Floor::kBytes);
}

void BM_Read_FreadLines(benchmark::State& state) {
    ReadFloor(state, Floor::kLines);
}

void BM_Read_FreadLinesNodes(benchmark::State& state) {
    ReadFloor(state, Floor::kTree);
}

BENCHMARK(BM_Store_Gaeb)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write_Fwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load_Gaeb)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_Fread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_FreadLines)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_FreadLinesNodes)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("store 100k positions vs fwrite (goal >= 0.33)", "BM_Store_Gaeb",
                     "BM_Write_Fwrite");
    reporter.AddPair("load 100k positions vs fread (goal >= 0.33)", "BM_Load_Gaeb",
                     "BM_Read_Fread");
    reporter.AddPair("load vs fread + memchr lines (floor of a line reader)", "BM_Load_Gaeb",
                     "BM_Read_FreadLines");
    reporter.AddPair("load vs that + the tree's allocations", "BM_Load_Gaeb",
                     "BM_Read_FreadLinesNodes");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::remove(TempPath().c_str());
    return 0;
}
