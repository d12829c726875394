// Record checksums, side by side in one run: the same data in a file of the
// format before checksums and in one of the current format (every read
// verifying a CRC-32C, every write computing it). Get Equal at random keys,
// Get Next through the first key, and inserts inside one transaction.
#include <benchmark/benchmark.h>
#include <dbfile/recman.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>

#include "interleaved.h"
#include "recman/engine.h"
#include "stores.h"

namespace {

using bench::Record;

constexpr uint32_t kRecords = 200000;
constexpr uint32_t kTxnRecords = 50000;

// A store created in the given format version.
std::unique_ptr<bench::RecmanStore> Make(const std::string& path, uint16_t version) {
    recman::Engine::Instance().SetCreateVersionForComparison(version);
    auto s = std::make_unique<bench::RecmanStore>(path);
    recman::Engine::Instance().SetCreateVersionForComparison(recman::kFormatVersion);
    return s;
}

struct Filled {
    std::string dir = bench::ScratchDir();
    std::unique_ptr<bench::RecmanStore> stores[2];  // unchecked, checked
    std::vector<int32_t> probes;

    Filled() {
        for (int v = 0; v < 2; ++v) {
            stores[v] = Make(dir + "/read" + std::to_string(v) + ".dat", uint16_t(v + 1));
            if (!stores[v]->Begin()) throw std::runtime_error("begin");
            for (uint32_t i = 0; i < kRecords; ++i) {
                Record r = bench::MakeRecord(i, kRecords);
                if (!stores[v]->Insert(r)) throw std::runtime_error("filling failed");
            }
            if (!stores[v]->End()) throw std::runtime_error("end");
        }
        probes = bench::Probes(kRecords);
    }
    ~Filled() { std::filesystem::remove_all(dir); }
};

Filled& Data() {
    static Filled* f = new Filled;  // kept to the end of the process
    return *f;
}

void GetEqual(benchmark::State& state, int v) {
    auto& d = Data();
    size_t i = 0;
    Record r;
    for (auto _ : state) {
        if (!d.stores[v]->GetEqual(d.probes[i++ & (d.probes.size() - 1)], r))
            state.SkipWithError("lookup failed");
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}

void GetNext(benchmark::State& state, int v) {
    auto& s = *Data().stores[v];
    Record r;
    if (!s.GetFirst(r)) state.SkipWithError("empty");
    for (auto _ : state) {
        if (!s.GetNext(r)) s.GetFirst(r);
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}

void TxnInsert(benchmark::State& state, int v) {
    std::vector<Record> records;
    for (uint32_t i = 0; i < kTxnRecords; ++i)
        records.push_back(bench::MakeRecord(i, kTxnRecords));
    for (auto _ : state) {
        state.PauseTiming();
        std::string dir = bench::ScratchDir();
        {
            auto s = Make(dir + "/txn.dat", uint16_t(v + 1));
            state.ResumeTiming();
            bool ok = s->Begin();
            for (Record& r : records)
                ok = ok && s->Insert(r);
            if (!(ok && s->End())) state.SkipWithError("transaction failed");
            state.PauseTiming();
        }
        std::filesystem::remove_all(dir);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kTxnRecords);
}

// Medians of each path, and the checked file's time over the unchecked one's.
class RatioReporter : public MedianSpeeds {
  public:
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-12s %16s %16s %18s\n", "path", "unchecked/s", "checksums/s",
                    "time with / without");
        for (const char* path : {"GetEqual", "GetNext", "TxnInsert"}) {
            double a = Speed(std::string(path) + "/unchecked");
            double b = Speed(std::string(path) + "/checksums");
            if (a > 0 && b > 0) std::printf("%-12s %16.0f %16.0f %17.3fx\n", path, a, b, a / b);
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    setenv("RECMAN_SYNC", "off", 0);
    const char* names[2] = {"unchecked", "checksums"};
    for (int v = 0; v < 2; ++v) {
        std::string n = names[v];
        benchmark::RegisterBenchmark(("GetEqual/" + n).c_str(), GetEqual, v)
            ->Repetitions(9)
            ->MinTime(0.2)
            ->ReportAggregatesOnly();
        benchmark::RegisterBenchmark(("GetNext/" + n).c_str(), GetNext, v)
            ->Repetitions(9)
            ->MinTime(0.2)
            ->ReportAggregatesOnly();
        benchmark::RegisterBenchmark(("TxnInsert/" + n).c_str(), TxnInsert, v)
            ->Iterations(1)
            ->Repetitions(7)
            ->Unit(benchmark::kMillisecond)
            ->ReportAggregatesOnly();
    }
    InitializeInterleaved(argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
