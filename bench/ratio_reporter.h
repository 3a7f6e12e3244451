// A console reporter that ends with the ratio of each registered pair measured in the same run:
// "<label>: <peer> / <ours> = <ratio>x" (above 1: ours is faster). CPU time is compared (the
// machines are shared: time spent descheduled is nobody's); with --benchmark_repetitions the
// medians are.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void AddPair(std::string label, std::string ours, std::string peer) {
        pairs_.push_back({std::move(label), std::move(ours), std::move(peer)});
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const std::string name = run.run_name.str();
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") medians_[name] = run.GetAdjustedCPUTime();
            } else {
                times_[name] = run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nratios (peer CPU time / our CPU time, same run):\n");
        for (const Pair& p : pairs_) {
            const double ours = Time(p.ours);
            const double peer = Time(p.peer);
            if (ours > 0 && peer > 0) {
                std::printf("  %-44s %8.2fx\n", p.label.c_str(), peer / ours);
            } else {
                std::printf("  %-44s (not run)\n", p.label.c_str());
            }
        }
    }

  private:
    struct Pair {
        std::string label, ours, peer;
    };
    double Time(const std::string& name) const {
        if (auto m = medians_.find(name); m != medians_.end()) return m->second;
        auto t = times_.find(name);
        return t != times_.end() ? t->second : 0;
    }
    std::vector<Pair> pairs_;
    std::map<std::string, double> times_;
    std::map<std::string, double> medians_;
};
