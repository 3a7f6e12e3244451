// Logging and variables beside their peers, in one run:
//  - UtCLogging::LogOnly of 1M records beside spdlog's synchronous loggers (single- and
//    multi-threaded) writing the same records, with the same bracketed time and level, to a file
//    sink; and LogOnly followed by the dump of all records to a file, the whole job spdlog does;
//  - VaVars::ReplaceAll over 1 MB of text (line by line, as texts are filled) with 100 variables
//    beside envsubst filling the same text from 100 environment variables (a process per run,
//    wall time, so its start-up counts: about a millisecond).
// Run: build/release/bench/services_bench  (TMPDIR chooses the folder).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "basert/files.h"
#include "kbase/services/UtCLogging.h"
#include "kbase/services/VaVars.h"
#include "ratio_reporter.h"

namespace {

constexpr int kRecords = 1000000;
constexpr int kVariables = 100;
constexpr size_t kTextBytes = 1 << 20;
constexpr short kLineBuffer = 4096;

std::string BenchPath(const char* name) {
    char dir[512];
    UtGetTempDir(dir, sizeof dir);
    return std::string(dir) + name;
}

const char* const kMessage = "wall 17 moved by 25 mm along axis B, openings updated";

void BM_UtCLogging_LogOnly(benchmark::State& state) {
    const UtCString msg(kMessage, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
    for (auto _ : state) {
        UtCLogging log(UtCString(BenchPath("kbase_bench_log.txt").c_str()));
        for (int i = 0; i < kRecords; ++i) log.LogOnly(msg, UtCLogging::eLogInfo);
        benchmark::DoNotOptimize(log.GetLogSize());
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_UtCLogging_LogOnlyAndDump(benchmark::State& state) {
    const UtCString msg(kMessage, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
    for (auto _ : state) {
        UtCLogging log(UtCString(BenchPath("kbase_bench_log.txt").c_str()));
        for (int i = 0; i < kRecords; ++i) log.LogOnly(msg, UtCLogging::eLogInfo);
        if (!log.DumpAndShow(UtCString(), false)) state.SkipWithError("dump failed");
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

template <typename Sink>
void SpdlogFile(benchmark::State& state) {
    const std::string path = BenchPath("kbase_bench_spdlog.txt");
    for (auto _ : state) {
        auto sink = std::make_shared<Sink>(path, true);
        spdlog::logger logger("bench", sink);
        logger.set_pattern("[ %Y-%m-%d %H:%M:%S %-7l ] %v");
        for (int i = 0; i < kRecords; ++i) logger.info(kMessage);
        logger.flush();
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations() * kRecords);
}
void BM_Spdlog_FileSt(benchmark::State& state) {
    SpdlogFile<spdlog::sinks::basic_file_sink_st>(state);
}
void BM_Spdlog_FileMt(benchmark::State& state) {
    SpdlogFile<spdlog::sinks::basic_file_sink_mt>(state);
}

// Lines of prose with a key every few words: "$v00" .. "$v99" (no name is a prefix of another).
const std::vector<std::string>& Lines() {
    static const std::vector<std::string> lines = [] {
        std::vector<std::string> out;
        const char* words[] = {"Wand",  "Decke",  "Fenster",  "Tuer",
                               "Achse", "Raster", "Geschoss", "Dach"};
        size_t total = 0;
        unsigned seed = 12345;
        while (total < kTextBytes) {
            std::string line;
            while (line.size() < 72) {
                seed = seed * 1103515245u + 12345u;
                if (seed % 5 == 0) {
                    char key[8];
                    std::snprintf(key, sizeof key, "$v%02u", (seed >> 8) % kVariables);
                    line += key;
                } else {
                    line += words[(seed >> 8) % 8];
                }
                line += ' ';
            }
            total += line.size() + 1;
            out.push_back(line);
        }
        return out;
    }();
    return lines;
}

std::string Value(int i) {
    return "Wert-" + std::to_string(i * 37);
}

void BM_VaVars_ReplaceAll(benchmark::State& state) {
    VaVars vars;
    for (int i = 0; i < kVariables; ++i) {
        char name[8];
        std::snprintf(name, sizeof name, "v%02d", i);
        vars.Set(name, Value(i).c_str());
    }
    std::vector<char> buf(static_cast<size_t>(kLineBuffer));
    size_t out = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        out = 0;
        for (const std::string& line : Lines()) {
            std::memcpy(buf.data(), line.c_str(), line.size() + 1);
            vars.ReplaceAll(buf.data(), kLineBuffer);
            out += std::strlen(buf.data()) + 1;
        }
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    benchmark::DoNotOptimize(out);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTextBytes));
}

void BM_Envsubst(benchmark::State& state) {
    const std::string input = BenchPath("kbase_bench_envsubst.txt");
    {
        std::ofstream f(input, std::ios::binary);
        for (const std::string& line : Lines()) f << line << '\n';
    }
    std::vector<std::string> env = {"PATH=/usr/bin:/bin"};
    for (int i = 0; i < kVariables; ++i) {
        char name[8];
        std::snprintf(name, sizeof name, "v%02d", i);
        env.push_back(std::string(name) + "=" + Value(i));
    }
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    char prog[] = "envsubst";
    char* argv[] = {prog, nullptr};
    for (auto _ : state) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        const auto start = std::chrono::steady_clock::now();
        pid_t pid = 0;
        int status = -1;
        if (posix_spawnp(&pid, "envsubst", &actions, nullptr, argv, envp.data()) == 0)
            waitpid(pid, &status, 0);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        posix_spawn_file_actions_destroy(&actions);
        if (status != 0) {
            state.SkipWithError("envsubst did not run (apt-get install gettext-base)");
            break;
        }
        state.SetIterationTime(seconds);
    }
    std::remove(input.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTextBytes));
}

}  // namespace

BENCHMARK(BM_UtCLogging_LogOnly)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_UtCLogging_LogOnlyAndDump)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Spdlog_FileSt)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_Spdlog_FileMt)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_VaVars_ReplaceAll)->Unit(benchmark::kMillisecond)->Iterations(10)->UseManualTime();
BENCHMARK(BM_Envsubst)->Unit(benchmark::kMillisecond)->Iterations(10)->UseManualTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    reporter.AddPair("LogOnly vs spdlog file sink st (goal >= 0.5x)",
                     "BM_UtCLogging_LogOnly/iterations:5", "BM_Spdlog_FileSt/iterations:5");
    reporter.AddPair("LogOnly vs spdlog file sink mt (goal >= 0.5x)",
                     "BM_UtCLogging_LogOnly/iterations:5", "BM_Spdlog_FileMt/iterations:5");
    reporter.AddPair("LogOnly + dump vs spdlog file sink st",
                     "BM_UtCLogging_LogOnlyAndDump/iterations:3", "BM_Spdlog_FileSt/iterations:5");
    reporter.AddRealTimePair("ReplaceAll 1 MB, 100 vars vs envsubst",
                             "BM_VaVars_ReplaceAll/iterations:10/manual_time",
                             "BM_Envsubst/iterations:10/manual_time");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
