// The benchmarks' common start: Google Benchmark reads the command line with
// the repetitions of all benchmarks interleaved at random, so that each side
// of a ratio meets the same moments of a busy machine, unless the command
// line says otherwise.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

inline void InitializeInterleaved(int argc, char** argv) {
    static std::vector<char*> args;
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.assign(argv, argv + argc);
    args.insert(args.begin() + (argc > 0 ? 1 : 0), interleave);
    int n = int(args.size());
    benchmark::Initialize(&n, args.data());
}

// The console report, keeping each benchmark's items per second by name for
// the ratio table a benchmark prints at its end: the median of its
// repetitions, or its one run.
class MedianSpeeds : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.error_occurred || !r.counters.count("items_per_second")) continue;
            bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
            if (median || (r.run_type == Run::RT_Iteration && r.repetitions <= 1))
                speed_[r.run_name.function_name] = r.counters.at("items_per_second");
        }
        ConsoleReporter::ReportRuns(runs);
    }

  protected:
    // The median of the benchmark so named; 0 when it did not run.
    double Speed(const std::string& name) const {
        auto it = speed_.find(name);
        return it == speed_.end() ? 0 : it->second;
    }

  private:
    std::map<std::string, double> speed_;
};
