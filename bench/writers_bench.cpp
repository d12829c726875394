// Writers outside transactions from 1, 2 and 4 processes into one file: the
// total of inserts a second, and how often a writer was told the file was
// locked (it then tries again, as the library's lock wait would).
#include <benchmark/benchmark.h>
#include <dbfile/recman.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "stores.h"

namespace {

// Every run inserts the same records, shared out among its processes so that
// together they insert in key order, as one process does alone: the file
// takes the same shape whatever the number of writers.
constexpr uint32_t kRecords = 8000;

// Child `p` of `processes`: inserts its share of the records; writes the
// number of 84 answers to `fd`. Exits non-zero on any other failure.
[[noreturn]] void Writer(const std::string& path, uint32_t p, uint32_t processes, int fd) {
    bench::RecmanStore store(path, false);
    uint32_t locked = 0;
    for (uint32_t id = p; id < kRecords; id += processes) {
        bench::Record r = bench::MakeRecord(id, kRecords, true);
        uint32_t len = sizeof(r.bytes);
        for (;;) {
            int16_t st = store.Call(RM_INSERT, r.bytes, &len, 0);
            if (st == RM_OK) break;
            if (st != RM_RECORD_LOCKED) _exit(2);
            ++locked;
        }
    }
    if (write(fd, &locked, sizeof(locked)) != sizeof(locked)) _exit(3);
    _exit(0);
}

void Writers(benchmark::State& state, int processes, const char* sync) {
    setenv("RECMAN_SYNC", sync, 1);
    uint64_t locked = 0;
    double fileMb = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::string dir = bench::ScratchDir();
        std::string path = dir + "/writers.dat";
        { bench::RecmanStore create(path); }
        int fds[2];
        if (pipe(fds) != 0) state.SkipWithError("pipe");
        state.ResumeTiming();
        std::vector<pid_t> pids;
        for (int p = 0; p < processes; ++p) {
            pid_t pid = fork();
            if (pid == 0) Writer(path, uint32_t(p), uint32_t(processes), fds[1]);
            pids.push_back(pid);
        }

        for (pid_t pid : pids) {
            int status = 0;
            waitpid(pid, &status, 0);
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
                state.SkipWithError("a writer failed");
        }
        state.PauseTiming();
        close(fds[1]);
        for (uint32_t n; read(fds[0], &n, sizeof(n)) == sizeof(n);)
            locked += n;
        close(fds[0]);
        fileMb = double(std::filesystem::file_size(path)) / (1 << 20);
        std::filesystem::remove_all(dir);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
    state.counters["answered_84"] = double(locked) / double(state.iterations());
    state.counters["file_MiB"] = fileMb;
}

}  // namespace

int main(int argc, char** argv) {
    for (const char* sync : {"normal", "off"})
        for (int processes : {1, 2, 4}) {
            std::string name = std::string("Writers/") + sync + "/" + std::to_string(processes);
            benchmark::RegisterBenchmark(name.c_str(),
                                         [=](benchmark::State& s) { Writers(s, processes, sync); })
                ->Iterations(1)
                ->Repetitions(3)
                ->ReportAggregatesOnly()
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
