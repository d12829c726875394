// Text files against plain stdio doing the same work: reading a
// 1,000,000-line comma-separated file forwards and backwards (each line
// trimmed and split, its second field looked at), and writing 1,000,000
// fixed records of 80 bytes. Each path runs three times, interleaved at
// random; after the runs the program prints each path's time as a multiple
// of stdio's.
#include <benchmark/benchmark.h>
#include <dbfile/dbfile.h>
#include <stdlib.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "interleaved.h"

namespace {

constexpr int kLines = 1000000;
constexpr int kRecordSize = 80;

// A scratch folder holding the comma-separated file, removed at exit.
struct Files {
    std::string dir, csv, fixed;
    Files() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "text-bench-XXXXXX").string();
        dir = mkdtemp(pattern.data());
        csv = dir + "/lines.csv";
        fixed = dir + "/records.dat";
        FILE* f = std::fopen(csv.c_str(), "wb");
        for (int i = 0; i < kLines; ++i)
            std::fprintf(f, "%d,Customer %d,\"%d.%02d\",2024-%02d-%02d\r\n", i, i * 7 % 100000,
                         i % 50000, i % 100, 1 + i % 12, 1 + i % 28);
        std::fclose(f);
    }
    ~Files() { std::filesystem::remove_all(dir); }
};

Files& Data() {
    static Files files;
    return files;
}

// What every reader does with a line: trim it, split it at the commas
// (a quoted field keeps its commas) and measure the second field.
struct Tally {
    long fields = 0, bytes = 0;
};

void Consume(char* line, size_t len, Tally& t) {
    while (len && std::isspace(static_cast<unsigned char>(line[len - 1])))
        --len;
    size_t start = 0;
    while (start < len && std::isspace(static_cast<unsigned char>(line[start])))
        ++start;
    line[len] = '\0';
    char* p = line + start;
    int field = 0;
    while (*p) {
        ++field;
        char* end;
        if (*p == '"') {
            end = std::strchr(p + 1, '"');
            end = end ? end + 1 : p + std::strlen(p);
        } else {
            end = std::strchr(p, ',');
            if (!end) end = p + std::strlen(p);
        }
        if (field == 2) t.bytes += end - p;
        if (!*end) break;
        *end = '\0';
        p = end + 1;
    }
    t.fields += field;
}

void Report(benchmark::State& state, const Tally& t) {
    state.SetItemsProcessed(kLines);
    state.counters["fields"] = double(t.fields);
    if (t.fields < 4L * kLines) state.SkipWithError("not every field was read");
}

void ReadForwardStdio(benchmark::State& state) {
    for (auto _ : state) {
        Tally t;
        FILE* f = std::fopen(Data().csv.c_str(), "rb");
        char line[4096];
        while (std::fgets(line, sizeof(line), f))
            Consume(line, std::strlen(line), t);
        std::fclose(f);
        Report(state, t);
    }
}

void ReadForwardDbfile(benchmark::State& state) {
    for (auto _ : state) {
        Tally t;
        CDelimFile f;
        f.Open(Data().csv.c_str());
        for (int ok = f.Top(); ok; ok = f.Next()) {
            t.fields += f.FieldCnt();
            t.bytes += long(std::strlen(f.Field(2)));
        }
        Report(state, t);
    }
}

// Blocks from the end towards the start; each line is handed over once its
// start is found.
void ReadBackwardStdio(benchmark::State& state) {
    for (auto _ : state) {
        Tally t;
        FILE* f = std::fopen(Data().csv.c_str(), "rb");
        std::fseek(f, 0, SEEK_END);
        long pos = std::ftell(f);
        std::vector<char> block(64 * 1024);
        std::string carry, line;
        bool last = true;  // the empty text after the final line end is no line
        while (pos > 0) {
            long n = pos < long(block.size()) ? pos : long(block.size());
            pos -= n;
            std::fseek(f, pos, SEEK_SET);
            n = long(std::fread(block.data(), 1, size_t(n), f));
            long end = n;
            for (long i = n; i-- > 0;) {
                if (block[size_t(i)] != '\n') continue;
                line.assign(block.data() + i + 1, size_t(end - i - 1));
                line += carry;
                carry.clear();
                if (!(last && line.empty())) Consume(line.data(), line.size(), t);
                last = false;
                end = i;
            }
            carry.insert(0, block.data(), size_t(end));
        }
        if (!carry.empty()) Consume(carry.data(), carry.size(), t);
        std::fclose(f);
        Report(state, t);
    }
}

void ReadBackwardDbfile(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        Tally t;
        CDelimFile f;
        f.Open(Data().csv.c_str());
        f.Bottom();
        state.ResumeTiming();
        do {
            t.fields += f.FieldCnt();
            t.bytes += long(std::strlen(f.Field(2)));
        } while (f.Prev());
        Report(state, t);
    }
}

// Every number in its range, so that each line is exactly kRecordSize long
// (and the compiler can see that it is).
int Record(char* out, int i) {
    unsigned n = unsigned(i) % 1000000u;
    return std::snprintf(out, kRecordSize + 1, "%06u %-30s%14u.%02u %8u%15s\r\n", n,
                         "Account holder", n * 13u % 1000000u, n % 100u, 20240101u + n % 28u, "");
}

void WriteFixedStdio(benchmark::State& state) {
    for (auto _ : state) {
        FILE* f = std::fopen(Data().fixed.c_str(), "wb");
        char rec[kRecordSize + 1];
        for (int i = 0; i < kLines; ++i) {
            Record(rec, i);
            std::fwrite(rec, kRecordSize, 1, f);
        }
        std::fclose(f);
        state.SetItemsProcessed(kLines);
    }
}

void WriteFixedDbfile(benchmark::State& state) {
    for (auto _ : state) {
        char rec[kRecordSize + 1];
        Record(rec, 0);
        Path path(Data().fixed.c_str());
        ZString first(rec);
        CTextFile f;
        f.Create(path, first);
        for (int i = 1; i < kLines; ++i) {
            Record(rec, i);
            f.Add(rec);
        }
        if (f.RcdCount() != unsigned(kLines)) state.SkipWithError("records missing");
        f.Close();
        state.SetItemsProcessed(kLines);
    }
}

// Collects each path's median speed for the table at the end.
class RatioReporter : public MedianSpeeds {
  public:
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-14s %14s %14s %22s\n", "path", "dbfile/s", "stdio/s",
                    "dbfile time / stdio");
        for (const char* path : {"ReadForward", "ReadBackward", "WriteFixed"}) {
            double d = Speed(std::string(path) + "Dbfile"), s = Speed(std::string(path) + "Stdio");
            if (d > 0 && s > 0) std::printf("%-14s %14.0f %14.0f %21.2fx\n", path, d, s, s / d);
        }
    }
};

void Register() {
    auto runs = [](benchmark::internal::Benchmark* b) {
        b->Iterations(1)->Repetitions(3)->Unit(benchmark::kMillisecond)->ReportAggregatesOnly();
    };
    runs(benchmark::RegisterBenchmark("ReadForwardDbfile", ReadForwardDbfile));
    runs(benchmark::RegisterBenchmark("ReadForwardStdio", ReadForwardStdio));
    runs(benchmark::RegisterBenchmark("ReadBackwardDbfile", ReadBackwardDbfile));
    runs(benchmark::RegisterBenchmark("ReadBackwardStdio", ReadBackwardStdio));
    runs(benchmark::RegisterBenchmark("WriteFixedDbfile", WriteFixedDbfile));
    runs(benchmark::RegisterBenchmark("WriteFixedStdio", WriteFixedStdio));
}

}  // namespace

int main(int argc, char** argv) {
    Register();
    InitializeInterleaved(argc, argv);
    Data();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
