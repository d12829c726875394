// The benchmarks' common start: Google Benchmark reads the command line with
// the repetitions of all benchmarks interleaved at random, so that each side
// of a ratio meets the same moments of a busy machine, unless the command
// line says otherwise.
#pragma once

#include <benchmark/benchmark.h>

#include <vector>

inline void InitializeInterleaved(int argc, char** argv) {
    static std::vector<char*> args;
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.assign(argv, argv + argc);
    args.insert(args.begin() + (argc > 0 ? 1 : 0), interleave);
    int n = int(args.size());
    benchmark::Initialize(&n, args.data());
}
