// The record-file library against the same work done with raw BTRCALLID
// calls on the same file, and its filtered lists against SQLite's SELECT
// with the same WHERE, side by side in one run. It ends with a table of
// ratios: what the library adds to the raw calls, and its speed over SQLite.
#include <benchmark/benchmark.h>
#include <dbfile/dbfile.h>
#include <dbfile/recman.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>

#include "interleaved.h"
#include "stores.h"

namespace {

using bench::Record;

// 1,000,000 records; the filter qty < 10 AND code = 3 lets about 770
// through, and each list returns their id and qty, 20 records a call.
constexpr uint32_t kRecords = 1000000;
constexpr int kMaxQty = 10, kCode = 3;

// The record layout as a dictionary would describe it.
void Describe(CDbFile& f) {
    struct {
        const char* name;
        dbFieldType type;
        uint16_t offset, length;
    } fields[] = {{"Id", dbInteger, 0, 4},
                  {"Name", dbZString, uint16_t(bench::kNameOffset), uint16_t(bench::kNameSize)},
                  {"Qty", dbInteger, uint16_t(bench::kQtyOffset), 4},
                  {"Code", dbInteger, uint16_t(bench::kCodeOffset), 2},
                  {"Rest", dbString, uint16_t(bench::kCodeOffset + 2),
                   uint16_t(bench::kRecordSize - bench::kCodeOffset - 2)}};
    uint16_t id = 0;
    for (const auto& d : fields) {
        auto* e = new CddFldElem;
        e->m_Fld.FldId = id++;
        e->m_Fld.Offset = d.offset;
        e->m_Fld.Length = d.length;
        e->m_Fld.Type = uint8_t(d.type);
        std::strncpy(e->m_Fld.Name, d.name, sizeof(e->m_Fld.Name) - 1);
        f.m_FldList.AddFld(e);
    }
    f.ResetFields(1);
}

struct Data {
    std::string dir = bench::ScratchDir();
    std::string path = dir + "/list.dat";
    bench::RecmanStore* raw;
    bench::SqliteScanStore sqlite{dir + "/list.db"};
    CDbFile file{path.c_str(), nullptr, 1};
    std::vector<int32_t> probes;
    long expected = 0;

    Data() {
        auto* filling = new bench::RecmanStore(path);
        sqlite.Exec("BEGIN");
        for (uint32_t i = 0; i < kRecords; ++i) {
            if (i % 100000 == 0 && ((i && !filling->End()) || !filling->Begin()))
                throw std::runtime_error("transaction");
            Record r = bench::MakeRecord(i, kRecords);
            if (!filling->Insert(r) || !sqlite.Insert(r)) throw std::runtime_error("filling");
            expected += r.qty() < kMaxQty && r.code() == kCode;
        }
        if (!filling->End()) throw std::runtime_error("end");
        sqlite.Exec("COMMIT");
        raw = filling;
        Describe(file);
        if (file.Open(nullptr, dbOpenNormal) != 0) throw std::runtime_error("open");
        probes = bench::Probes(kRecords);
    }
    ~Data() { std::filesystem::remove_all(dir); }
};

Data& TheData() {
    static Data* d = new Data;  // kept to the end of the process
    return *d;
}

void GetEqualWithLibrary(benchmark::State& state) {
    Data& d = TheData();
    size_t i = 0;
    for (auto _ : state) {
        int32_t id = d.probes[i++ & (d.probes.size() - 1)];
        d.file.SetKey(&id, 4, 0);
        if (d.file.GetEqual(nullptr, 0, 1) != 0) state.SkipWithError("lookup failed");
        benchmark::DoNotOptimize(d.file.RcdBuf()[0]);
    }
    state.SetItemsProcessed(state.iterations());
}

void GetEqualRaw(benchmark::State& state) {
    Data& d = TheData();
    size_t i = 0;
    Record r;
    for (auto _ : state) {
        if (!d.raw->GetEqual(d.probes[i++ & (d.probes.size() - 1)], r))
            state.SkipWithError("lookup failed");
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}

void GetNextWithLibrary(benchmark::State& state) {
    CDbFile& f = TheData().file;
    f.SetKey(0);
    if (f.GetFirst(nullptr) != 0) state.SkipWithError("empty file");
    for (auto _ : state) {
        if (f.GetNext(nullptr) != 0) f.GetFirst(nullptr);
        benchmark::DoNotOptimize(f.RcdBuf()[0]);
    }
    state.SetItemsProcessed(state.iterations());
}

void GetNextRaw(benchmark::State& state) {
    bench::RecmanStore& s = *TheData().raw;
    Record r;
    if (!s.GetFirst(r)) state.SkipWithError("empty file");
    for (auto _ : state) {
        if (!s.GetNext(r)) s.GetFirst(r);
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(state.iterations());
}

// The filtered list through the library: terms, fields and options once,
// then lists until the end of the file, each record read from the list.
long ListWithLibrary(CDbFile& f) {
    int32_t qty = kMaxQty;
    int16_t code = kCode;
    f.ResetTerms();
    f.AddTerm(2, dbRelLess, &qty, dbLogicAnd, 1);
    f.AddTerm(3, dbRelEqual, &code, dbLogicEnd, 1);
    f.ResetFields(0);
    f.SelectField(0);
    f.SelectField(2);
    f.SetFilterOptions(20, 0, 65535);
    long found = 0;
    int64_t sum = 0;
    for (unsigned short n = f.GetFirstList(nullptr);; n = f.GetNextList(nullptr)) {
        for (unsigned short i = 1; i <= n; ++i) {
            long position;
            unsigned short length;
            auto* p = static_cast<const char*>(f.GetRecFromList(i, &position, &length));
            int32_t id, q;
            std::memcpy(&id, p, 4);
            std::memcpy(&q, p + 4, 4);
            sum += id + q;
        }
        found += n;
        if (f.GetLastError() != 0) break;
    }
    return f.GetLastError() == 9 && sum >= 0 ? found : -1;
}

// The same list with raw calls: the descriptor written by hand.
long ListRaw(bench::RecmanStore& s) {
    std::vector<uint8_t> d;
    auto u8 = [&](int v) { d.push_back(uint8_t(v)); };
    auto u16 = [&](int v) { u8(v & 0xFF), u8(v >> 8); };
    u16(0), u8('U'), u8('C'), u16(65535), u16(2);
    u8(RM_TYPE_INTEGER), u16(4), u16(int(bench::kQtyOffset)), u8(3), u8(1), u16(kMaxQty), u16(0);
    u8(RM_TYPE_INTEGER), u16(2), u16(int(bench::kCodeOffset)), u8(1), u8(0), u16(kCode);
    u16(20), u16(2), u16(4), u16(0), u16(4), u16(int(bench::kQtyOffset));
    d[0] = uint8_t(d.size());
    std::vector<uint8_t> buf(20 * 14 + 2);
    Record r;
    if (!s.GetFirst(r)) return -1;
    long found = 0;
    int64_t sum = 0;
    for (bool first = true;; first = false) {
        std::memcpy(buf.data(), d.data(), d.size());
        buf[2] = first ? 'U' : 'E';
        buf[3] = first ? 'C' : 'G';
        uint32_t len = uint32_t(buf.size());
        int16_t st = s.Call(RM_GET_NEXT_EXTENDED, buf.data(), &len, 0);
        if (st != RM_OK && st != RM_END_OF_FILE) return -1;
        uint16_t n = uint16_t(buf[0] | buf[1] << 8);
        for (size_t i = 0, at = 2; i < n; ++i, at += 6 + 8) {
            int32_t id, q;
            std::memcpy(&id, &buf[at + 6], 4);
            std::memcpy(&q, &buf[at + 10], 4);
            sum += id + q;
        }
        found += n;
        if (st == RM_END_OF_FILE) break;
    }
    return sum >= 0 ? found : -1;
}

template <class Fn>
void FilteredList(benchmark::State& state, Fn list) {
    long expected = TheData().expected;
    for (auto _ : state)
        if (list() != expected) state.SkipWithError("the list has the wrong records");
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void Register() {
    using namespace benchmark;
    auto lists = [](internal::Benchmark* b) {
        b->Iterations(1)->Repetitions(5)->Unit(kMillisecond)->ReportAggregatesOnly();
    };
    lists(RegisterBenchmark("FilteredList/dbfile", [](State& s) {
        FilteredList(s, [] { return ListWithLibrary(TheData().file); });
    }));
    lists(RegisterBenchmark("FilteredList/raw", [](State& s) {
        FilteredList(s, [] { return ListRaw(*TheData().raw); });
    }));
    lists(RegisterBenchmark("FilteredList/sqlite", [](State& s) {
        FilteredList(s, [] { return TheData().sqlite.Scan(kMaxQty, kCode); });
    }));
    auto reads = [](internal::Benchmark* b) {
        b->Repetitions(5)->MinTime(0.2)->ReportAggregatesOnly();
    };
    reads(RegisterBenchmark("GetEqual/dbfile", GetEqualWithLibrary));
    reads(RegisterBenchmark("GetEqual/raw", GetEqualRaw));
    reads(RegisterBenchmark("GetNext/dbfile", GetNextWithLibrary));
    reads(RegisterBenchmark("GetNext/raw", GetNextRaw));
}

// Collects each path's median items per second for the ratio table.
class RatioReporter : public MedianSpeeds {
  public:
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-14s %14s %14s %14s %16s %12s\n", "path", "dbfile/s", "raw/s", "sqlite/s",
                    "library adds", "vs sqlite");
        for (const char* path : {"GetEqual", "GetNext", "FilteredList"}) {
            double l = Get(path, "dbfile"), r = Get(path, "raw"), s = Get(path, "sqlite");
            if (l <= 0 || r <= 0) continue;
            std::printf("%-14s %14.0f %14.0f %14.0f %15.1f%%", path, l, r, s, (r / l - 1) * 100);
            if (s > 0)
                std::printf(" %11.2fx\n", l / s);
            else
                std::printf(" %12s\n", "");
        }
    }

  private:
    double Get(const std::string& path, const std::string& how) { return Speed(path + "/" + how); }
};

}  // namespace

int main(int argc, char** argv) {
    setenv("RECMAN_SYNC", "off", 0);  // like SQLite's synchronous=OFF
    Register();
    InitializeInterleaved(argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
