// Reading records (UtCCsvReader::ReadRecord, raw and quoted) beside the line tokenizer
// (ParseNextRow) on one file of 8M short rows (about 200 MB, "name;district;12.50;2024"), and the
// describe pass of `kbase csv` (every field classified) beside the tokenizer. Ratios: tokenizer
// time / our time (above 1: faster than the tokenizer).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "bench_python.h"
#include "kbase/tables/UtCCsvReader.h"
#include "ratio_reporter.h"

namespace {

constexpr int kRows = 8000000;

// quoted: the text fields in quotes, one in 16 with a ';' inside.
const std::string& DataFile(bool quoted) {
    static std::string paths[2];
    std::string& path = paths[quoted ? 1 : 0];
    if (!path.empty()) return path;
    path = TempPath(quoted ? "kbase_bench_records_quoted.csv" : "kbase_bench_records.csv");
    if (std::filesystem::exists(path) && std::filesystem::file_size(path) > 150000000) return path;
    static const char* names[] = {"Mueller", "Schmidt", "Schneider", "Fischer",
                                  "Weber",   "Meyer",   "Wagner",    "Becker"};
    static const char* districts[] = {"Innenstadt", "Rodenkirchen", "Lindenthal",
                                      "Ehrenfeld",  "Nippes",       "Chorweiler"};
    std::mt19937 rng(3);
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fputs("name;district;amount;year\n", f);
    for (int i = 0; i < kRows; ++i) {
        const char* name = names[rng() % 8];
        const char* district = districts[rng() % 6];
        const unsigned cents = static_cast<unsigned>(rng() % 100000);
        const unsigned year = 2000 + static_cast<unsigned>(rng() % 25);
        if (quoted) {
            std::fprintf(f, "\"%s\";\"%s%s\";%u.%02u;%u\n", name, district,
                         rng() % 16 == 0 ? "; Nord" : "", cents / 100, cents % 100, year);
        } else {
            std::fprintf(f, "%s;%s;%u.%02u;%u\n", name, district, cents / 100, cents % 100, year);
        }
    }
    std::fclose(f);
    return path;
}

UtCString Name(bool quoted) {
    return UtCString(DataFile(quoted).c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}

void SetBytes(benchmark::State& state, bool quoted) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(DataFile(quoted))));
}

void BM_Tokenizer(benchmark::State& state) {
    for (auto _ : state) {
        UtCCsvReader r(Name(false));
        r.SetMColumnTypeMasks(std::vector<UtCCsvReader::TColumnMasks>(4));
        size_t sum = 0;
        while (r.ParseNextRow(true)) {
            for (int i = 0; i < 4; ++i) sum += static_cast<unsigned char>(r.GetTokenPtr(i)[0]);
        }
        benchmark::DoNotOptimize(sum);
    }
    SetBytes(state, false);
}

void ReadRecords(benchmark::State& state, bool quotedMode, bool quotedFile) {
    for (auto _ : state) {
        UtCCsvReader r(Name(quotedFile));
        r.SetQuoted(quotedMode);
        size_t sum = 0;
        for (int n; (n = r.ReadRecord()) >= 0;) {
            for (int i = 0; i < n; ++i) sum += r.GetFieldLength(i);
        }
        benchmark::DoNotOptimize(sum);
    }
    SetBytes(state, quotedFile);
}

void BM_ReadRecord_Raw(benchmark::State& state) {
    ReadRecords(state, false, false);
}
void BM_ReadRecord_Quoted(benchmark::State& state) {
    ReadRecords(state, true, false);
}
void BM_ReadRecord_QuotedFile(benchmark::State& state) {
    ReadRecords(state, true, true);
}

// What the describe pass does per record: every field classified.
void BM_Describe_Quoted(benchmark::State& state) {
    for (auto _ : state) {
        UtCCsvReader r(Name(false));
        r.SetQuoted(true);
        uint32_t masks[8] = {};
        bool comma = false;
        for (int n; (n = r.ReadRecord()) >= 0;) {
            for (int i = 0; i < n && i < 8; ++i) {
                masks[i] |= UtCCsvReader::ClassifyField(r.GetFieldPtr(i), r.GetFieldLength(i),
                                                        eUtEncodingTypeUtf8, &comma)
                                .implicitMask;
            }
        }
        benchmark::DoNotOptimize(masks);
    }
    SetBytes(state, false);
}

}  // namespace

BENCHMARK(BM_Tokenizer)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadRecord_Raw)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadRecord_Quoted)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadRecord_QuotedFile)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Describe_Quoted)->Unit(benchmark::kMillisecond)->Iterations(3);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("ReadRecord raw vs tokenizer", "BM_ReadRecord_Raw/iterations:3",
                     "BM_Tokenizer/iterations:3");
    reporter.AddPair("ReadRecord quoted vs tokenizer", "BM_ReadRecord_Quoted/iterations:3",
                     "BM_Tokenizer/iterations:3");
    reporter.AddPair("describe (quoted) vs tokenizer (goal >= 0.5x)",
                     "BM_Describe_Quoted/iterations:3", "BM_Tokenizer/iterations:3");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
