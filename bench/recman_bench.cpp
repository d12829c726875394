// recman against raw LMDB and SQLite on the same data, side by side in one run.
// After the measurements it prints each path's speed as a ratio of the others.
#include <benchmark/benchmark.h>
#include <dbfile/recman.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <random>

#include "interleaved.h"
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
        probes = bench::Probes(kRecords);
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

// The filtered scan: 1,000,000 records, qty < 10 AND code = 3 (about 770 of
// them), id and qty extracted, 20 records a call.
constexpr uint32_t kScanRecords = 1000000;
constexpr int kMaxQty = 10, kCode = 3;

struct ScanData {
    std::string dir = bench::ScratchDir();
    bench::RecmanStore recman{dir + "/scan.dat"};
    bench::SqliteScanStore sqlite{dir + "/scan.db"};
    bool inOrder;
    long expected = 0;

    explicit ScanData(bool ordered) : inOrder(ordered) {
        sqlite.Exec("BEGIN");
        for (uint32_t i = 0; i < kScanRecords; ++i) {
            if (i % 100000 == 0 && (i ? !recman.End() : false)) throw std::runtime_error("end");
            if (i % 100000 == 0 && !recman.Begin()) throw std::runtime_error("begin");
            Record r = bench::MakeRecord(i, kScanRecords, inOrder);
            if (!recman.Insert(r) || !sqlite.Insert(r)) throw std::runtime_error("filling");
            expected += r.qty() < kMaxQty && r.code() == kCode;
        }
        if (!recman.End()) throw std::runtime_error("end");
        sqlite.Exec("COMMIT");
    }
    ~ScanData() { std::filesystem::remove_all(dir); }
};

// Records inserted in scattered key order, or in key order.
ScanData& Scan(bool inOrder) {
    static ScanData* scattered = nullptr;
    static ScanData* ordered = nullptr;
    ScanData*& d = inOrder ? ordered : scattered;
    if (!d) d = new ScanData(inOrder);  // kept to the end of the process
    return *d;
}

// The descriptor of the scan, "UC" or "EG".
std::vector<uint8_t> ScanDescriptor(bool useCurrent) {
    std::vector<uint8_t> d;
    auto u8 = [&](int v) { d.push_back(uint8_t(v)); };
    auto u16 = [&](int v) {
        u8(v & 0xFF);
        u8(v >> 8);
    };
    u16(0);
    u8(useCurrent ? 'U' : 'E');
    u8(useCurrent ? 'C' : 'G');
    u16(65535);                                                              // reject count
    u16(2);                                                                  // terms
    u8(RM_TYPE_INTEGER), u16(4), u16(int(bench::kQtyOffset)), u8(3), u8(1);  // qty < 10 AND
    u16(kMaxQty), u16(0);
    u8(RM_TYPE_INTEGER), u16(2), u16(int(bench::kCodeOffset)), u8(1), u8(0);  // code = 3
    u16(kCode);
    u16(20);  // records a call
    u16(2);   // fields: id and qty
    u16(4), u16(0), u16(4), u16(int(bench::kQtyOffset));
    d[0] = uint8_t(d.size());
    d[1] = uint8_t(d.size() >> 8);
    return d;
}

long ScanWithRecman(bench::RecmanStore& s) {
    const std::vector<uint8_t> uc = ScanDescriptor(true), eg = ScanDescriptor(false);
    std::vector<uint8_t> buf(4096);
    Record r;
    if (!s.GetFirst(r)) return -1;
    long found = 0;
    int64_t sum = 0;
    bool useCurrent = true;
    for (;;) {
        const auto& d = useCurrent ? uc : eg;
        std::memcpy(buf.data(), d.data(), d.size());
        uint32_t len = uint32_t(buf.size());
        int16_t st = s.Call(RM_GET_NEXT_EXTENDED, buf.data(), &len, 0);
        if (st != RM_OK && st != RM_END_OF_FILE && st != RM_REJECT_COUNT_REACHED) return -1;
        uint16_t n = uint16_t(buf[0] | buf[1] << 8);
        for (size_t i = 0, at = 2; i < n; ++i, at += 6 + 8) {
            int32_t id, qty;
            std::memcpy(&id, &buf[at + 6], 4);
            std::memcpy(&qty, &buf[at + 10], 4);
            sum += id + qty;
        }
        found += n;
        if (st == RM_END_OF_FILE) break;
        // After the reject count the scan goes on from the record it stopped on.
        useCurrent = st == RM_REJECT_COUNT_REACHED;
    }
    return sum >= 0 ? found : -1;
}

template <class Fn>
void FilteredScan(benchmark::State& state, bool inOrder, Fn scan) {
    long expected = Scan(inOrder).expected;
    for (auto _ : state)
        if (scan() != expected) state.SkipWithError("the scan found the wrong records");
    state.SetItemsProcessed(state.iterations() * kScanRecords);
}

// Inserts inside one transaction, into a fresh file.
constexpr uint32_t kTxnRecords = 100000;

template <class Store, class Fn>
void TxnInsert(benchmark::State& state, const char* file, Fn run) {
    for (auto _ : state) {
        state.PauseTiming();
        std::string dir = bench::ScratchDir();
        {
            auto store = std::make_unique<Store>(dir + "/" + file);
            std::vector<Record> records;
            for (uint32_t i = 0; i < kTxnRecords; ++i)
                records.push_back(bench::MakeRecord(i, kTxnRecords));
            state.ResumeTiming();
            if (!run(*store, records)) state.SkipWithError("transaction failed");
            state.PauseTiming();
        }
        std::filesystem::remove_all(dir);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kTxnRecords);
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

    auto thrice = [](internal::Benchmark* b) {
        b->Iterations(1)->Repetitions(3)->Unit(kMillisecond)->ReportAggregatesOnly();
    };
    thrice(RegisterBenchmark("TxnInsert/recman", [](State& s) {
        TxnInsert<bench::RecmanStore>(s, "txn.dat",
                                      [](bench::RecmanStore& st, std::vector<Record>& rs) {
                                          if (!st.Begin()) return false;
                                          for (Record& r : rs)
                                              if (!st.Insert(r)) return false;
                                          return st.End();
                                      });
    }));
    thrice(RegisterBenchmark("TxnInsert/lmdb", [](State& s) {
        TxnInsert<bench::LmdbStore>(s, "txn.mdb",
                                    [](bench::LmdbStore& st, std::vector<Record>& rs) {
                                        if (!st.BeginBulk()) return false;
                                        for (Record& r : rs)
                                            if (!st.InsertInBulk(r)) return false;
                                        return st.EndBulk();
                                    });
    }));
    thrice(RegisterBenchmark("TxnInsert/sqlite", [](State& s) {
        TxnInsert<bench::SqliteStore>(s, "txn.db",
                                      [](bench::SqliteStore& st, std::vector<Record>& rs) {
                                          if (!st.Exec("BEGIN")) return false;
                                          for (Record& r : rs)
                                              if (!st.Insert(r)) return false;
                                          return st.Exec("COMMIT");
                                      });
    }));
    for (bool inOrder : {false, true}) {
        std::string path = inOrder ? "FilteredScanInOrder" : "FilteredScan";
        thrice(RegisterBenchmark((path + "/recman").c_str(), [inOrder](State& s) {
            FilteredScan(s, inOrder, [inOrder] { return ScanWithRecman(Scan(inOrder).recman); });
        }));
        thrice(RegisterBenchmark((path + "/sqlite").c_str(), [inOrder](State& s) {
            FilteredScan(s, inOrder,
                         [inOrder] { return Scan(inOrder).sqlite.Scan(kMaxQty, kCode); });
        }));
    }

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
class RatioReporter : public MedianSpeeds {
  public:
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-20s %14s %14s %14s %12s %12s\n", "path", "recman/s", "lmdb/s", "sqlite/s",
                    "vs lmdb", "vs sqlite");
        for (const char* path : {"BulkInsert", "GetEqual", "GetNext", "StepNext", "TxnInsert",
                                 "FilteredScan", "FilteredScanInOrder"}) {
            double r = Get(path, "recman"), l = Get(path, "lmdb"), s = Get(path, "sqlite");
            if (r <= 0) continue;
            std::printf("%-20s %14.0f %14.0f %14.0f %11.2fx %11.2fx\n", path, r, l, s,
                        l > 0 ? r / l : 0.0, s > 0 ? r / s : 0.0);
        }
    }

  private:
    double Get(const std::string& path, const std::string& store) {
        return Speed(path + "/" + store);
    }
};

}  // namespace

int main(int argc, char** argv) {
    setenv("RECMAN_SYNC", "off", 0);  // like LMDB's NOSYNC and SQLite's synchronous=OFF
    Register();
    InitializeInterleaved(argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
