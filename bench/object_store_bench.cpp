// Propagation speed of the object store beside two peers doing the same number of calls:
// a loop over std::vector<std::function<void()>> and a boost::signals2 signal.
//
//   fanout/<who>/N: one update reaches N dependents, each a heap object that counts the call.
//   chain/<who>/N:  one update travels along N objects, each counting and passing it on.
//
// Every dependent is a separate heap object in all three, and every call does the same work
// (count, and in the chain pass on). The chain recurses N deep in all three, so the benchmarks
// run on a thread with a large stack. At the end the program prints the ratios of this run.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <boost/signals2.hpp>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kbase/object_store/ObStore.h"

namespace {

constexpr int kCounting = 1;
constexpr int kForwarding = 2;
constexpr int kDepends = 1;
const std::vector<int64_t> kSizes = {10'000, 100'000, 1'000'000};

struct Counter {
    int64_t calls = 0;
};

// ---- The store. ----

OB_STATUS Attach(_ObObject* self, void* counter) {
    self->obData = counter;
    return OB_OK;
}

OB_STATUS Count(_ObObject* self, const AssociationInfo*, _ObObject*, OB_METHOD_ID,
                OB_METHOD_PARAM) {
    ++static_cast<Counter*>(self->obData)->calls;
    return OB_OK;
}

// A receiver is busy; it passes the change on by running the walk for itself.
OB_STATUS CountAndPassOn(_ObObject* self, const AssociationInfo*, _ObObject*, OB_METHOD_ID method,
                         OB_METHOD_PARAM param) {
    ++static_cast<Counter*>(self->obData)->calls;
    return ObDoAssociations(self, OB_PROPAGATE_MARK_UPDATE, self, method, param);
}

void DefineStore() {
    ObInit();
    if (ObDefineClass(kCounting, "Counting", Attach, nullptr, nullptr, nullptr, nullptr, nullptr,
                      nullptr, nullptr, Count, nullptr, nullptr) != 0 ||
        ObDefineClass(kForwarding, "Forwarding", Attach, nullptr, nullptr, nullptr, nullptr,
                      nullptr, nullptr, nullptr, CountAndPassOn, nullptr, nullptr) != 0 ||
        ObDefineAssociationType(kDepends, "Depends", OB_PROPAGATE_MARK_UPDATE) != 0) {
        std::abort();
    }
}

// N counters, each its own heap object.
std::vector<std::unique_ptr<Counter>> MakeCounters(int64_t n) {
    std::vector<std::unique_ptr<Counter>> counters;
    counters.reserve(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i) counters.push_back(std::make_unique<Counter>());
    return counters;
}

int64_t TotalCalls(const std::vector<std::unique_ptr<Counter>>& counters) {
    int64_t total = 0;
    for (const auto& c : counters) total += c->calls;
    return total;
}

void Finish(benchmark::State& state, const std::vector<std::unique_ptr<Counter>>& counters) {
    const int64_t n = static_cast<int64_t>(counters.size());
    if (TotalCalls(counters) != n * static_cast<int64_t>(state.iterations())) {
        state.SkipWithError("a dependent was not called");
    }
    state.SetItemsProcessed(n * static_cast<int64_t>(state.iterations()));
}

void StoreFanout(benchmark::State& state) {
    const int64_t n = state.range(0);
    Counter hubCounter;
    auto counters = MakeCounters(n);
    _ObObject* hub = ObCreateParam(kCounting, &hubCounter);
    std::vector<_ObObject*> dependents;
    dependents.reserve(static_cast<size_t>(n));
    for (auto& c : counters) {
        dependents.push_back(ObCreateParam(kCounting, c.get()));
        if (ObAddAssociation(dependents.back(), hub, kDepends) != 0) std::abort();
    }
    for (auto _ : state) {
        if (ObUpdate(hub) != OB_OK) state.SkipWithError("update failed");
    }
    Finish(state, counters);
    ObFreeObject(hub);  // detaches all N records at once
    for (_ObObject* d : dependents) ObFreeObject(d);
}

void StoreChain(benchmark::State& state) {
    const int64_t n = state.range(0);
    Counter headCounter;
    auto counters = MakeCounters(n);
    _ObObject* head = ObCreateParam(kCounting, &headCounter);
    std::vector<_ObObject*> chain{head};
    chain.reserve(static_cast<size_t>(n) + 1);
    for (auto& c : counters) {
        chain.push_back(ObCreateParam(kForwarding, c.get()));
        if (ObAddAssociation(chain.back(), chain[chain.size() - 2], kDepends) != 0) std::abort();
    }
    for (auto _ : state) {
        if (ObUpdate(head) != OB_OK) state.SkipWithError("update failed");
    }
    Finish(state, counters);
    for (_ObObject* o : chain) ObFreeObject(o);
}

// ---- std::function. ----

void FunctionFanout(benchmark::State& state) {
    auto counters = MakeCounters(state.range(0));
    std::vector<std::function<void()>> calls;
    calls.reserve(counters.size());
    for (auto& c : counters) calls.emplace_back([c = c.get()] { ++c->calls; });
    for (auto _ : state) {
        for (auto& call : calls) call();
    }
    Finish(state, counters);
}

void FunctionChain(benchmark::State& state) {
    auto counters = MakeCounters(state.range(0));
    std::vector<std::function<void()>> calls(counters.size());
    for (size_t i = 0; i < counters.size(); ++i) {
        calls[i] = [&calls, c = counters[i].get(), next = i + 1] {
            ++c->calls;
            if (next < calls.size()) calls[next]();
        };
    }
    for (auto _ : state) calls[0]();
    Finish(state, counters);
}

// ---- boost::signals2. ----

void SignalFanout(benchmark::State& state) {
    auto counters = MakeCounters(state.range(0));
    boost::signals2::signal<void()> changed;
    for (auto& c : counters) changed.connect([c = c.get()] { ++c->calls; });
    for (auto _ : state) changed();
    Finish(state, counters);
}

void SignalChain(benchmark::State& state) {
    auto counters = MakeCounters(state.range(0));
    std::vector<std::unique_ptr<boost::signals2::signal<void()>>> signals;
    for (size_t i = 0; i < counters.size(); ++i) {
        signals.push_back(std::make_unique<boost::signals2::signal<void()>>());
    }
    for (size_t i = 0; i < counters.size(); ++i) {
        signals[i]->connect([&signals, c = counters[i].get(), next = i + 1] {
            ++c->calls;
            if (next < signals.size()) (*signals[next])();
        });
    }
    for (auto _ : state) (*signals[0])();
    Finish(state, counters);
}

// ---- Ratios. ----

// Collects the time per dependent of every run and prints the ratios when all are done.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0 || run.error_occurred) {
                continue;
            }
            const std::string& name = run.run_name.function_name;  // "<shape>/<who>"
            const size_t slash = name.find('/');
            const int64_t n = std::stoll(run.run_name.args);
            const double perDependentNs =
                run.real_accumulated_time * 1e9 / static_cast<double>(run.iterations) /
                static_cast<double>(n);
            ns_[name.substr(0, slash)][n][name.substr(slash + 1)].push_back(perDependentNs);
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nRatios of this run (time per dependent, median of the repetitions):\n");
        for (auto& [shape, runsBySize] : ns_) {
            std::map<int64_t, std::map<std::string, double>> bySize;  // medians of the repetitions
            for (auto& [n, runsByWho] : runsBySize) {
                for (auto& [who, runs] : runsByWho) bySize[n][who] = Median(runs);
            }
            for (auto& [n, t] : bySize) {
                if (!t.count("store")) continue;
                std::printf(
                    "  %-6s N=%-8lld store %6.2f ns  std::function %6.2f ns  signals2 %7.2f ns"
                    "  | store/std::function %5.2fx  signals2/store %6.2fx  store %6.1f M/s\n",
                    shape.c_str(), static_cast<long long>(n), t["store"], t["std_function"],
                    t["signals2"], t["store"] / t["std_function"], t["signals2"] / t["store"],
                    1e3 / t["store"]);
            }
            if (bySize.count(100'000) && bySize.count(1'000'000)) {
                const double t1 = bySize[100'000]["store"] * 100'000;
                const double t2 = bySize[1'000'000]["store"] * 1'000'000;
                std::printf("  %-6s store time 1M / 100k: %.2fx\n", shape.c_str(), t2 / t1);
            }
        }
    }

private:
    static double Median(std::vector<double> v) {
        std::sort(v.begin(), v.end());
        const size_t m = v.size() / 2;
        return v.size() % 2 != 0 ? v[m] : (v[m - 1] + v[m]) / 2;
    }

    // shape -> N -> who -> time per dependent of each repetition
    std::map<std::string, std::map<int64_t, std::map<std::string, std::vector<double>>>> ns_;
};

void Register() {
    const struct {
        const char* name;
        void (*fn)(benchmark::State&);
    } all[] = {{"fanout/store", StoreFanout},           {"fanout/std_function", FunctionFanout},
               {"fanout/signals2", SignalFanout},       {"chain/store", StoreChain},
               {"chain/std_function", FunctionChain}, {"chain/signals2", SignalChain}};
    for (const auto& b : all) {
        for (int64_t n : kSizes) {
            benchmark::RegisterBenchmark(b.name, b.fn)
                ->Arg(n)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(0.3);
        }
    }
}

void* RunAll(void*) {
    DefineStore();
    Register();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    // The chains recurse a million deep: reserve (not commit) a large stack for them.
    const size_t stackSize = size_t{16} << 30;
    void* stack = mmap(nullptr, stackSize, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (stack == MAP_FAILED) {
        std::perror("mmap");
        return 1;
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, stack, stackSize);
    pthread_t thread;
    if (pthread_create(&thread, &attr, RunAll, nullptr) != 0) return 1;
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    munmap(stack, stackSize);
    return 0;
}
