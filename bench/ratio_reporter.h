// A console reporter that ends with the ratio of each registered pair measured in the same run:
// "<label>: <peer> / <ours> = <ratio>x" (above 1: ours is faster). CPU time is compared (the
// machines are shared: time spent descheduled is nobody's); with --benchmark_repetitions the
// medians are. A pair added with AddRealTimePair compares wall time instead, for a peer that runs
// in another process and reports its own time (UseManualTime).
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void AddPair(std::string label, std::string ours, std::string peer) {
        pairs_.push_back({std::move(label), std::move(ours), std::move(peer), false});
    }
    void AddRealTimePair(std::string label, std::string ours, std::string peer) {
        pairs_.push_back({std::move(label), std::move(ours), std::move(peer), true});
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const std::string name = run.run_name.str();
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") {
                    medians_[name] = run.GetAdjustedCPUTime();
                    realMedians_[name] = run.GetAdjustedRealTime();
                }
            } else {
                times_[name] = run.GetAdjustedCPUTime();
                realTimes_[name] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nratios (peer time / our time, same run; CPU time unless marked wall):\n");
        for (const Pair& p : pairs_) {
            const double ours = p.real ? Time(p.ours, realMedians_, realTimes_) : Time(p.ours, medians_, times_);
            const double peer = p.real ? Time(p.peer, realMedians_, realTimes_) : Time(p.peer, medians_, times_);
            if (ours > 0 && peer > 0) {
                std::printf("  %-44s %8.2fx%s\n", p.label.c_str(), peer / ours, p.real ? " (wall)" : "");
            } else {
                std::printf("  %-44s (not run)\n", p.label.c_str());
            }
        }
    }

  private:
    struct Pair {
        std::string label, ours, peer;
        bool real;
    };
    static double Time(const std::string& name, const std::map<std::string, double>& medians,
                       const std::map<std::string, double>& times) {
        if (auto m = medians.find(name); m != medians.end()) return m->second;
        auto t = times.find(name);
        return t != times.end() ? t->second : 0;
    }
    std::vector<Pair> pairs_;
    std::map<std::string, double> times_;
    std::map<std::string, double> medians_;
    std::map<std::string, double> realTimes_;
    std::map<std::string, double> realMedians_;
};
