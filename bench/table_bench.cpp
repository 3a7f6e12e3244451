// Table operations on 1M rows (3 text keys, 3 numeric columns, a few thousand groups):
// UtTable::SumColumn, Sort and RemoveDuplicate beside SQLite :memory: (GROUP BY with SUM,
// ORDER BY, DISTINCT) and pandas (groupby().sum(), sort_values, drop_duplicates).
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "bench_python.h"
#include "ratio_reporter.h"
#include "kbase/tables/UtTable.h"

namespace {

constexpr int kRows = 1000000;

struct Data {
    std::vector<std::vector<std::string>> rows;
    std::string csv;  // the same rows for pandas
};

const Data& TheData() {
    static const Data d = [] {
        Data out;
        static const char* a[] = {"Wand", "Fenster", "Tuer", "Dach", "Decke", "Boden", "Treppe", "Stuetze", "Balken",
                                  "Platte", "Rampe", "Schacht", "Sockel", "Attika", "Brüstung", "Sturz", "Laibung",
                                  "Gaube", "Kamin", "Pfette"};
        std::mt19937 rng(5);
        out.rows.reserve(kRows);
        for (int i = 0; i < kRows; ++i) {
            char n1[16], n2[16], n3[16];
            std::snprintf(n1, sizeof n1, "%u", static_cast<unsigned>(1 + rng() % 20));
            std::snprintf(n2, sizeof n2, "%u.%02u", static_cast<unsigned>(rng() % 50), static_cast<unsigned>(rng() % 4 * 25));
            std::snprintf(n3, sizeof n3, "%u.5", static_cast<unsigned>(rng() % 10));
            out.rows.push_back({a[rng() % 20], "EG" + std::to_string(rng() % 15), "M" + std::to_string(rng() % 10), n1, n2, n3});
        }
        out.csv = TempPath("kbase_bench_1m_table.csv");
        FILE* f = std::fopen(out.csv.c_str(), "wb");
        std::fputs("k1;k2;k3;n1;n2;n3\n", f);
        for (const auto& r : out.rows) std::fprintf(f, "%s;%s;%s;%s;%s;%s\n", r[0].c_str(), r[1].c_str(), r[2].c_str(), r[3].c_str(), r[4].c_str(), r[5].c_str());
        std::fclose(f);
        return out;
    }();
    return d;
}

UtTable MakeTable() {
    UtTable t;
    for (const auto& r : TheData().rows) {
        UtTableRow& row = t.AddRow();
        for (const auto& c : r) row.AddElem(UtCString(c.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeAnsi1252));
    }
    return t;
}

template <typename Op>
void KbaseRun(benchmark::State& state, Op op) {
    for (auto _ : state) {
        state.PauseTiming();
        UtTable t = MakeTable();
        state.ResumeTiming();
        op(t);
        benchmark::DoNotOptimize(t.GetRowCount());
        state.PauseTiming();
        state.counters["rows_out"] = static_cast<double>(t.GetRowCount());
        { UtTable gone(std::move(t)); }
        state.ResumeTiming();
    }
}

void BM_Kbase_SumColumn(benchmark::State& state) {
    KbaseRun(state, [](UtTable& t) {
        const long sums[] = {3, 4, 5};
        t.SumColumn(3, sums, nullptr, 0, nullptr);
    });
}
void BM_Kbase_Sort(benchmark::State& state) {
    KbaseRun(state, [](UtTable& t) {
        const long cols[] = {0, 1, 2};
        const short dirs[] = {0, 0, 0};
        t.Sort(3, cols, dirs);
    });
}
void BM_Kbase_RemoveDuplicate(benchmark::State& state) {
    KbaseRun(state, [](UtTable& t) { t.RemoveDuplicate(); });
}

sqlite3* Sqlite() {
    static sqlite3* db = [] {
        sqlite3* h = nullptr;
        sqlite3_open(":memory:", &h);
        sqlite3_exec(h, "CREATE TABLE t(k1 TEXT, k2 TEXT, k3 TEXT, n1 REAL, n2 REAL, n3 REAL)", nullptr, nullptr, nullptr);
        sqlite3_exec(h, "BEGIN", nullptr, nullptr, nullptr);
        sqlite3_stmt* ins = nullptr;
        sqlite3_prepare_v2(h, "INSERT INTO t VALUES(?,?,?,?,?,?)", -1, &ins, nullptr);
        for (const auto& r : TheData().rows) {
            for (int i = 0; i < 6; ++i) sqlite3_bind_text(ins, i + 1, r[static_cast<size_t>(i)].c_str(), -1, SQLITE_STATIC);
            sqlite3_step(ins);
            sqlite3_reset(ins);
        }
        sqlite3_finalize(ins);
        sqlite3_exec(h, "COMMIT", nullptr, nullptr, nullptr);
        return h;
    }();
    return db;
}

void SqliteRun(benchmark::State& state, const char* sql) {
    sqlite3* db = Sqlite();
    for (auto _ : state) {
        sqlite3_stmt* st = nullptr;
        sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
        size_t rows = 0, bytes = 0;
        while (sqlite3_step(st) == SQLITE_ROW) {
            ++rows;
            for (int i = 0; i < sqlite3_column_count(st); ++i) bytes += static_cast<size_t>(sqlite3_column_bytes(st, i));
        }
        sqlite3_finalize(st);
        benchmark::DoNotOptimize(bytes);
        state.counters["rows_out"] = static_cast<double>(rows);
    }
}

void BM_Sqlite_GroupSum(benchmark::State& state) {
    SqliteRun(state, "SELECT k1,k2,k3,SUM(n1),SUM(n2),SUM(n3) FROM t GROUP BY k1,k2,k3");
}
void BM_Sqlite_OrderBy(benchmark::State& state) { SqliteRun(state, "SELECT * FROM t ORDER BY k1,k2,k3"); }
void BM_Sqlite_Distinct(benchmark::State& state) { SqliteRun(state, "SELECT DISTINCT * FROM t"); }

void PandasRun(benchmark::State& state, const std::string& op) {
    const std::string script = "import time, pandas as pd\ndf=pd.read_csv('" + TheData().csv +
                               "', sep=';', dtype={'k1':str,'k2':str,'k3':str})\nt=time.perf_counter()\nr=" + op +
                               "\nprint(time.perf_counter()-t)";
    for (auto _ : state) state.SetIterationTime(RunPythonTimed(script));
}

void BM_Pandas_GroupSum(benchmark::State& state) { PandasRun(state, "df.groupby(['k1','k2','k3']).sum()"); }
void BM_Pandas_SortValues(benchmark::State& state) { PandasRun(state, "df.sort_values(['k1','k2','k3'], kind='stable')"); }
void BM_Pandas_DropDuplicates(benchmark::State& state) { PandasRun(state, "df.drop_duplicates()"); }

}  // namespace

BENCHMARK(BM_Kbase_SumColumn)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Sqlite_GroupSum)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Pandas_GroupSum)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK(BM_Kbase_Sort)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Sqlite_OrderBy)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Pandas_SortValues)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK(BM_Kbase_RemoveDuplicate)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Sqlite_Distinct)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Pandas_DropDuplicates)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    const char* goals[][4] = {{"SumColumn", "BM_Kbase_SumColumn", "BM_Sqlite_GroupSum", "BM_Pandas_GroupSum"},
                              {"Sort", "BM_Kbase_Sort", "BM_Sqlite_OrderBy", "BM_Pandas_SortValues"},
                              {"RemoveDuplicate", "BM_Kbase_RemoveDuplicate", "BM_Sqlite_Distinct",
                               "BM_Pandas_DropDuplicates"}};
    for (const auto& g : goals) {
        const std::string ours = std::string(g[1]) + "/iterations:3";
        reporter.AddPair(std::string(g[0]) + " vs SQLite (goal >= 10x)", ours, std::string(g[2]) + "/iterations:2");
        reporter.AddRealTimePair(std::string(g[0]) + " vs pandas (goal >= 1/1.5)", ours,
                                 std::string(g[3]) + "/iterations:3/manual_time");
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
