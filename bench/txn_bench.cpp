// End Transaction over one file and over three, through the commit journal
// and, for comparison, the way End committed before there was one (one
// storage commit per file, no journal). Each transaction updates two records
// in each of its files; "End" times End alone, "Txn" the whole transaction.
// Both ways run side by side, transaction by transaction, with RECMAN_SYNC
// normal and off; the program ends with a table of ratios.
#include <benchmark/benchmark.h>
#include <dbfile/recman.h>
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "recman/engine.h"
#include "stores.h"

namespace {

constexpr uint32_t kRecords = 2000;
constexpr int kFiles = 3;

// Three files per sync mode and way of ending, filled once and kept open:
// a file's sync mode is taken when it is opened.
struct FileSet {
    std::string dir;
    std::vector<std::unique_ptr<bench::RecmanStore>> files;
};

FileSet& Files(const std::string& sync, bool journal) {
    static std::map<std::string, FileSet> sets;
    FileSet& s = sets[sync + (journal ? "/journal" : "/today")];
    if (!s.files.empty()) return s;
    setenv("RECMAN_SYNC", sync.c_str(), 1);
    s.dir = bench::ScratchDir();
    for (int f = 0; f < kFiles; ++f) {
        auto store =
            std::make_unique<bench::RecmanStore>(s.dir + "/f" + std::to_string(f) + ".dat");
        for (uint32_t i = 0; i < kRecords; ++i) {
            bench::Record r = bench::MakeRecord(i, kRecords);
            if (!store->Insert(r)) std::abort();
        }
        s.files.push_back(std::move(store));
    }
    return s;
}

// One transaction over `files` files of `set`; answers how long End took,
// or the whole transaction, in microseconds (negative on failure).
double OneTransaction(FileSet& set, int files, bool endOnly, std::mt19937& rng) {
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    if (!set.files[0]->Begin()) return -1;
    for (int f = 0; f < files; ++f) {
        for (int k = 0; k < 2; ++k) {
            bench::Record r;
            if (!set.files[size_t(f)]->GetEqual(int32_t(rng() % kRecords), r)) return -1;
            r.bytes[bench::kRecordSize - 1]++;  // filler: no key changes
            uint32_t len = bench::kRecordSize;
            if (set.files[size_t(f)]->Call(RM_UPDATE, r.bytes, &len, -1)) return -1;
        }
    }
    if (endOnly) start = Clock::now();
    if (!set.files[0]->End()) return -1;
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Each iteration runs the same transaction both ways, in turn first, so
// that both meet the same moments of a busy machine. The iteration's time
// is the journal's; the counters hold both means and their ratio.
void Transactions(benchmark::State& state, int files, const std::string& sync, bool endOnly) {
    FileSet& journal = Files(sync, true);
    FileSet& today = Files(sync, false);
    auto& engine = recman::Engine::Instance();
    std::mt19937 rng(42);
    double sumJournal = 0, sumToday = 0;
    bool journalFirst = true;
    for (auto _ : state) {
        double j = 0, t = 0;
        for (int turn = 0; turn < 2; ++turn) {
            bool useJournal = (turn == 0) == journalFirst;
            engine.SetJournalForComparison(useJournal);
            double us = OneTransaction(useJournal ? journal : today, files, endOnly, rng);
            if (us < 0) state.SkipWithError("transaction failed");
            (useJournal ? j : t) = us;
        }
        journalFirst = !journalFirst;
        sumJournal += j;
        sumToday += t;
        state.SetIterationTime(j / 1e6);
    }
    engine.SetJournalForComparison(true);
    double n = double(state.iterations());
    state.counters["journal_us"] = sumJournal / n;
    state.counters["today_us"] = sumToday / n;
    state.counters["ratio"] = sumToday > 0 ? sumJournal / sumToday : 0;
}

std::string Name(bool endOnly, int files, const std::string& sync) {
    return std::string(endOnly ? "End/" : "Txn/") + std::to_string(files) + "file/" + sync;
}

// Collects each path's median counters for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs)
            if (!r.error_occurred && r.run_type == Run::RT_Aggregate &&
                r.aggregate_name == "median")
                median_[r.run_name.function_name] = r.counters;
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-18s %12s %12s %8s\n", "path", "journal us", "today us", "ratio");
        for (auto& [name, c] : median_)
            std::printf("%-18s %12.1f %12.1f %7.2fx\n", name.c_str(), double(c["journal_us"]),
                        double(c["today_us"]), double(c["ratio"]));
    }

  private:
    std::map<std::string, benchmark::UserCounters> median_;
};

}  // namespace

int main(int argc, char** argv) {
    for (bool endOnly : {true, false})
        for (const char* sync : {"normal", "off"})
            for (int files : {1, 3})
                benchmark::RegisterBenchmark(
                    Name(endOnly, files, sync).c_str(),
                    [=](benchmark::State& s) { Transactions(s, files, sync, endOnly); })
                    ->Iterations(std::string(sync) == "off" ? 3000 : 300)
                    ->Repetitions(3)
                    ->ReportAggregatesOnly()
                    ->UseManualTime()
                    ->Unit(benchmark::kMicrosecond);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
