// recman against raw LMDB and SQLite on the same data, side by side in one run.
// After the measurements it prints each path's speed as a ratio of the others.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>

#include "stores.h"

namespace {

using bench::Record;

constexpr uint32_t kRecords = 200000;

// Stores filled once and shared by the read benchmarks.
struct Filled {
    std::string dir = bench::ScratchDir();
    bench::RecmanStore recman{dir + "/read.dat"};
    bench::LmdbStore lmdb{dir + "/read.mdb"};
    bench::SqliteStore sqlite{dir + "/read.db"};
    std::vector<int32_t> probes;  // random ids to look up

    Filled() {
        lmdb.BeginBulk();
        sqlite.Exec("BEGIN");
        for (uint32_t i = 0; i < kRecords; ++i) {
            Record r = bench::MakeRecord(i, kRecords);
            if (!recman.Insert(r) || !lmdb.InsertInBulk(r) || !sqlite.Insert(r))
                throw std::runtime_error("filling the stores failed");
        }
        lmdb.EndBulk();
        sqlite.Exec("COMMIT");
        lmdb.BeginReads();
        std::mt19937 rng(42);
        for (int i = 0; i < 1 << 16; ++i)
            probes.push_back(int32_t(rng() % kRecords));
    }
    ~Filled() { std::filesystem::remove_all(dir); }
};

Filled& Data() {
    static Filled* f = new Filled;  // kept to the end of the process
    return *f;
}

template <class Fn>
void Walk(benchmark::State& state, Fn first, Fn next) {
    Record r;
    if (!first(r)) state.SkipWithError("empty store");
    for (auto _ : state) {
        if (!next(r)) first(r);
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}

template <class Fn>
void Lookups(benchmark::State& state, Fn get) {
    const auto& probes = Data().probes;
    size_t i = 0;
    Record r;
    for (auto _ : state) {
        if (!get(probes[i++ & (probes.size() - 1)], r)) state.SkipWithError("lookup failed");
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}

// Bulk insert of every record, one change at a time (each its own commit).
template <class Store, class Fn>
void BulkInsert(benchmark::State& state, const char* file, Fn insert) {
    for (auto _ : state) {
        state.PauseTiming();
        std::string dir = bench::ScratchDir();
        {
            auto store = std::make_unique<Store>(dir + "/" + file);
            state.ResumeTiming();
            for (uint32_t i = 0; i < kRecords; ++i) {
                Record r = bench::MakeRecord(i, kRecords);
                if (!insert(*store, r)) state.SkipWithError("insert failed");
            }
            state.PauseTiming();
        }
        std::filesystem::remove_all(dir);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void Register() {
    using namespace benchmark;
    auto once = [](internal::Benchmark* b) { b->Iterations(1)->Unit(kMillisecond); };
    once(RegisterBenchmark("BulkInsert/recman", [](State& s) {
        BulkInsert<bench::RecmanStore>(
            s, "bulk.dat", [](bench::RecmanStore& st, Record& r) { return st.Insert(r); });
    }));
    once(RegisterBenchmark("BulkInsert/lmdb", [](State& s) {
        BulkInsert<bench::LmdbStore>(s, "bulk.mdb",
                                     [](bench::LmdbStore& st, Record& r) { return st.Insert(r); });
    }));
    once(RegisterBenchmark("BulkInsert/sqlite", [](State& s) {
        BulkInsert<bench::SqliteStore>(
            s, "bulk.db", [](bench::SqliteStore& st, Record& r) { return st.Insert(r); });
    }));

    // Reads: five repetitions each, interleaved at random with the other
    // stores' (see main), so that a noisy moment does not favour one store.
    auto reads = [](internal::Benchmark* b) {
        b->Repetitions(5)->MinTime(0.2)->ReportAggregatesOnly();
    };
    reads(RegisterBenchmark("GetEqual/recman", [](State& s) {
        Lookups(s, [](int32_t id, Record& r) { return Data().recman.GetEqual(id, r); });
    }));
    reads(RegisterBenchmark("GetEqual/lmdb", [](State& s) {
        Lookups(s, [](int32_t id, Record& r) { return Data().lmdb.GetEqual(id, r); });
    }));
    reads(RegisterBenchmark("GetEqual/sqlite", [](State& s) {
        Lookups(s, [](int32_t id, Record& r) { return Data().sqlite.GetEqual(id, r); });
    }));

    using F = bool (*)(Record&);
    reads(RegisterBenchmark("GetNext/recman", [](State& s) {
        Walk<F>(
            s, [](Record& r) { return Data().recman.GetFirst(r); },
            [](Record& r) { return Data().recman.GetNext(r); });
    }));
    reads(RegisterBenchmark("GetNext/lmdb", [](State& s) {
        Walk<F>(
            s, [](Record& r) { return Data().lmdb.First(r); },
            [](Record& r) { return Data().lmdb.Next(r); });
    }));
    reads(RegisterBenchmark("GetNext/sqlite", [](State& s) {
        Walk<F>(
            s, [](Record& r) { return Data().sqlite.First(r); },
            [](Record& r) { return Data().sqlite.Next(r); });
    }));
    reads(RegisterBenchmark("StepNext/recman", [](State& s) {
        Walk<F>(
            s, [](Record& r) { return Data().recman.StepFirst(r); },
            [](Record& r) { return Data().recman.StepNext(r); });
    }));
    reads(RegisterBenchmark("StepNext/lmdb", [](State& s) {
        Walk<F>(
            s, [](Record& r) { return Data().lmdb.First(r); },
            [](Record& r) { return Data().lmdb.Next(r); });
    }));
    reads(RegisterBenchmark("StepNext/sqlite", [](State& s) {
        Walk<F>(
            s, [](Record& r) { return Data().sqlite.ScanFirst(r); },
            [](Record& r) { return Data().sqlite.ScanNext(r); });
    }));
}

// Collects each run's items per second for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.error_occurred || !r.counters.count("items_per_second")) continue;
            // With repetitions, the median stands for the path; else the run.
            bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
            if (median || (r.run_type == Run::RT_Iteration && r.repetitions <= 1))
                speed_[r.run_name.function_name] = r.counters.at("items_per_second");
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-12s %14s %14s %14s %12s %12s\n", "path", "recman/s", "lmdb/s", "sqlite/s",
                    "vs lmdb", "vs sqlite");
        for (const char* path : {"BulkInsert", "GetEqual", "GetNext", "StepNext"}) {
            double r = Get(path, "recman"), l = Get(path, "lmdb"), s = Get(path, "sqlite");
            if (r <= 0) continue;
            std::printf("%-12s %14.0f %14.0f %14.0f %11.2fx %11.2fx\n", path, r, l, s,
                        l > 0 ? r / l : 0.0, s > 0 ? r / s : 0.0);
        }
    }

  private:
    double Get(const std::string& path, const std::string& store) {
        auto it = speed_.find(path + "/" + store);
        return it == speed_.end() ? 0 : it->second;
    }
    std::map<std::string, double> speed_;
};

}  // namespace

int main(int argc, char** argv) {
    setenv("RECMAN_SYNC", "off", 0);  // like LMDB's NOSYNC and SQLite's synchronous=OFF
    Register();
    // Interleave the repetitions of all benchmarks at random unless told otherwise.
    std::vector<char*> args(argv, argv + argc);
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    argc = int(args.size());
    argv = args.data();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
