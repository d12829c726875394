// Maintenance and numbering through the library:
// - pack and reindex of a file against a raw copy of the same records into a
//   fresh file of the same description in one transaction (goal: the pack
//   takes at most twice as long);
// - auto-increment numbers handed out a second by one process and by four
//   processes taking from one series at once.
// BENCH_RECORDS sets the file's record count (default 1,000,000).
#include <benchmark/benchmark.h>
#include <dbfile/dbfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr short kCopyClient = 0x5A5A;

uint32_t Records() {
    const char* s = std::getenv("BENCH_RECORDS");
    long n = s && *s ? std::strtol(s, nullptr, 10) : 1000000;
    return uint32_t(n > 0 ? n : 1);
}

std::string ScratchDir() {
    std::string base = std::filesystem::temp_directory_path().string() + "/dbfile-mbench-XXXXXX";
    std::vector<char> t(base.begin(), base.end());
    t.push_back(0);
    if (!mkdtemp(t.data())) std::abort();
    return t.data();
}

// A dictionary with one entry, Big.dat: Id (unique key 0), Name (key 1,
// duplicates, any case), Qty and a memo; 64-byte records.
struct Company {
    std::string dir = ScratchDir();
    uint32_t records = Records();

    Company() {
        std::snprintf(g_CddFileName, sizeof(g_CddFileName), "%s/bench.ddf", dir.c_str());
        CDbFile::SetDataPath(dir.c_str());
        CCdd cdd(nullptr, g_CddFileName);
        cdd.SetErrOverride(1);
        if (cdd.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1) != 0) std::abort();
        cdd.Clear();
        std::strcpy(cdd.m_FileDat.FileName, "Big.dat");
        cdd.m_FileDat.FileType = dbFileData;
        cdd.m_FileDat.FileSpec.PageSize = 4096;
        cdd.AddField(0, 0, 4, dbInteger, 0, "Id", "", "");
        cdd.AddField(1, 4, 20, dbString, 0, "Name", "", "");
        cdd.AddField(2, 24, 4, dbInteger, 0, "Qty", "", "");
        cdd.AddField(3, 28, 36, dbZString, 0, "Memo", "", "");
        cdd.AddKey(0, "Id", "Id", 0);
        cdd.AddKey(1, "Name", "Name", 0x0001 | 0x0002 | 0x0400);
        cdd.m_FileDat.FileSpec.RecLen = 64;
        cdd.m_FileDat.FileSpec.NdxCount = 2;
        if (cdd.Insert(nullptr) != 0) std::abort();
        Fill();
    }
    ~Company() {
        delete CDbFile::m_TheCdd;
        CDbFile::m_TheCdd = nullptr;
        std::filesystem::remove_all(dir);
    }
    void Fill() {
        CDbFile f("Big.dat");
        f.SetClientId(kCopyClient);
        if (f.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)) != 0) std::abort();
        f.SetBrowser(1);
        for (uint32_t i = 0; i < records; ++i) {
            if (i % 20000 == 0) CDbFile::BeginTransaction(kCopyClient);
            std::memset(f.RcdBuf(), 0, 64);
            f.SetDataLen(64);
            int32_t id = int32_t(i);
            std::memcpy(f.RcdBuf(), &id, 4);
            std::snprintf(f.RcdBuf() + 4, 20, "name %u", (i * 7919u) % 5003u);
            std::snprintf(f.RcdBuf() + 28, 36, "memo of record %u", i);
            if (f.Insert(nullptr) != 0) std::abort();
            if (i % 20000 == 19999 || i + 1 == records) CDbFile::EndTransaction(kCopyClient);
        }
        f.Close(nullptr);
    }
};

Company& TheCompany() {
    static Company company;
    return company;
}

void BM_PackAndReindex(benchmark::State& state) {
    Company& c = TheCompany();
    for (auto _ : state) {
        unsigned long count = 0;
        CString error;
        if (!CDbFile::PackAndReindex("Big.dat", c.dir.c_str(), &count, nullptr, &error, nullptr))
            state.SkipWithError(error.c_str());
        if (count != c.records) state.SkipWithError("records lost");
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * c.records);
}

// The same records stepped through into a fresh file of the same
// description, in one transaction.
void BM_RawCopy(benchmark::State& state) {
    Company& c = TheCompany();
    std::string copy = c.dir + "/Copy.dat";
    for (auto _ : state) {
        CDbFile source("Big.dat"), target("Big.dat");
        target.SetFileName(copy.c_str(), nullptr);
        source.SetClientId(kCopyClient);
        target.SetClientId(kCopyClient);
        if (source.Open(nullptr, dbOpenNormal) != 0 ||
            target.Open(nullptr, dbOpenType(dbOpenExclusive | dbOpenCreate)) != 0)
            state.SkipWithError("open");
        target.SetBrowser(1);
        CDbFile::BeginTransaction(kCopyClient);
        uint32_t count = 0;
        for (int st = source.StepFirst(nullptr); st == 0; st = source.StepNext(nullptr)) {
            target.CopyRcdData(&source);
            if (target.Insert(nullptr) != 0) state.SkipWithError("insert");
            ++count;
        }
        CDbFile::EndTransaction(kCopyClient);
        source.Close(nullptr);
        target.CloseTemp();
        if (count != c.records) state.SkipWithError("records lost");
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * c.records);
}

// Numbers from series 1 of a number file whose series is already started
// (no data files to scan), by `processes` processes at once.
void BM_Numbers(benchmark::State& state) {
    int processes = int(state.range(0));
    bool durable = state.range(1) != 0;
    setenv("RECMAN_SYNC", durable ? "normal" : "off", 1);
    // A durable number costs a flush of the number file.
    const int kEach = durable ? 250 : 2000;
    std::string dir = ScratchDir();
    CDbFile::SetDataPath(dir.c_str());
    for (auto _ : state) {
        state.PauseTiming();
        {
            std::ofstream out(dir + "/SmNumber.dat", std::ios::binary | std::ios::trunc);
            const uint32_t records[2] = {0, 1};
            out.write(reinterpret_cast<const char*>(records), sizeof(records));
        }
        TheNumberFile(1).CloseNumberFile(1);
        state.ResumeTiming();
        std::vector<pid_t> pids;
        for (int p = 0; p < processes; ++p) {
            pid_t pid = fork();
            if (pid == 0) {
                uint32_t n = 0;
                for (int i = 0; i < kEach; ++i)
                    if (TheNumberFile(1).GetNextNumber(1, n) != AI_OK) _exit(2);
                _exit(0);
            }
            pids.push_back(pid);
        }
        for (pid_t pid : pids) {
            int status = 0;
            waitpid(pid, &status, 0);
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("child");
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * processes * kEach);
    std::filesystem::remove_all(dir);
    unsetenv("RECMAN_SYNC");
}

}  // namespace

// Real time throughout: the work of the numbering runs is in child processes.
BENCHMARK(BM_RawCopy)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_PackAndReindex)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_Numbers)
    ->ArgsProduct({{1, 4}, {0, 1}})
    ->ArgNames({"processes", "durable"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

BENCHMARK_MAIN();
