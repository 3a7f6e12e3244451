// Tokenizing and loading a 100+ MB semicolon file (2M rows, 8 fields): UtCCsvReader beside
// fast-cpp-csv-parser's CSVReader (char* fields) and pandas; CSVTableWithHeader::Load beside
// pandas with dtype=str. Compare the pairs' times in one run.
#include <benchmark/benchmark.h>
// The peer's header copies its file name with strncpy in a way GCC 12 warns about when inlined.
#pragma GCC diagnostic ignored "-Wstringop-truncation"
#include <libfccp/csv.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "bench_python.h"
#include "ratio_reporter.h"
#include "kbase/tables/CSVTableWithHeader.h"
#include "kbase/tables/UtCCsvReader.h"

namespace {

constexpr int kRows = 2000000;

const std::string& DataFile() {
    static const std::string path = [] {
        const std::string p = TempPath("kbase_bench_2m_rows.csv");
        if (std::filesystem::exists(p) && std::filesystem::file_size(p) > 100000000) return p;
        static const char* words[] = {"Wand", "Fenster", "Tuer", "Dach", "Decke", "Boden", "Treppe", "Stuetze",
                                      "Balken", "Platte"};
        std::mt19937 rng(11);
        FILE* f = std::fopen(p.c_str(), "wb");
        std::fputs("id;element;storey;material;length;width;area;note\n", f);
        for (int i = 0; i < kRows; ++i) {
            std::fprintf(f, "%d;%s-%u;EG%u;C%u/%u;%u.%02u;%u.%03u;%u.%02u;%s %s geprueft\n", i + 1, words[rng() % 10],
                         static_cast<unsigned>(rng() % 1000), static_cast<unsigned>(rng() % 9),
                         static_cast<unsigned>(20 + rng() % 30), static_cast<unsigned>(25 + rng() % 35),
                         static_cast<unsigned>(rng() % 100), static_cast<unsigned>(rng() % 100),
                         static_cast<unsigned>(rng() % 10), static_cast<unsigned>(rng() % 1000),
                         static_cast<unsigned>(rng() % 5000), static_cast<unsigned>(rng() % 100), words[rng() % 10],
                         words[rng() % 10]);
        }
        std::fclose(f);
        return p;
    }();
    return path;
}

void SetBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(DataFile())));
}

void BM_Kbase_Tokenize(benchmark::State& state) {
    const UtCString name(DataFile().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
    for (auto _ : state) {
        UtCCsvReader r(name);
        r.SetMColumnTypeMasks(std::vector<UtCCsvReader::TColumnMasks>(8));
        r.SkipNextRow();  // the header
        size_t sum = 0;
        while (r.ParseNextRow(true)) {
            for (int i = 0; i < 8; ++i) sum += static_cast<unsigned char>(r.GetTokenPtr(i)[0]);
        }
        benchmark::DoNotOptimize(sum);
    }
    SetBytes(state);
}

void BM_Fccp_Tokenize(benchmark::State& state) {
    for (auto _ : state) {
        io::CSVReader<8, io::trim_chars<>, io::no_quote_escape<';'>> in(DataFile());
        in.read_header(io::ignore_extra_column, "id", "element", "storey", "material", "length", "width", "area", "note");
        char* c[8] = {};
        size_t sum = 0;
        while (in.read_row(c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7])) {
            for (char* p : c) sum += static_cast<unsigned char>(p[0]);
        }
        benchmark::DoNotOptimize(sum);
    }
    SetBytes(state);
}

void BM_Pandas_Tokenize(benchmark::State& state) {
    const std::string script = "import time, pandas as pd\nt=time.perf_counter()\ndf=pd.read_csv('" + DataFile() +
                                "', sep=';')\nprint(time.perf_counter()-t)";
    for (auto _ : state) state.SetIterationTime(RunPythonTimed(script));
    SetBytes(state);
}

void BM_Kbase_TableLoad(benchmark::State& state) {
    const UtCString name(DataFile().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
    for (auto _ : state) {
        CSVTableWithHeader t(name, ';', true);
        benchmark::DoNotOptimize(t.GetRowCount());
    }
    SetBytes(state);
}

void BM_Pandas_TableLoadStr(benchmark::State& state) {
    const std::string script = "import time, pandas as pd\nt=time.perf_counter()\ndf=pd.read_csv('" + DataFile() +
                                "', sep=';', dtype=str)\nprint(time.perf_counter()-t)";
    for (auto _ : state) state.SetIterationTime(RunPythonTimed(script));
    SetBytes(state);
}

}  // namespace

BENCHMARK(BM_Kbase_Tokenize)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Fccp_Tokenize)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Pandas_Tokenize)->Unit(benchmark::kMillisecond)->Iterations(2)->UseManualTime();
BENCHMARK(BM_Kbase_TableLoad)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Pandas_TableLoadStr)->Unit(benchmark::kMillisecond)->Iterations(2)->UseManualTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("tokenizing vs fast-cpp-csv-parser (goal >= 1.3x)", "BM_Kbase_Tokenize/iterations:3",
                     "BM_Fccp_Tokenize/iterations:3");
    reporter.AddRealTimePair("tokenizing vs pandas (goal >= 8x)", "BM_Kbase_Tokenize/iterations:3",
                             "BM_Pandas_Tokenize/iterations:2/manual_time");
    reporter.AddRealTimePair("table load vs pandas dtype=str (goal >= 5x)", "BM_Kbase_TableLoad/iterations:2",
                             "BM_Pandas_TableLoadStr/iterations:2/manual_time");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
