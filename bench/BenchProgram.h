/// What the benchmark programs have in common: each benchmark runs once, in a process of its own started by
/// scripts/bench.
#pragma once

#include <functional>

#include <benchmark/benchmark.h>

namespace BenchProgram {

/// Adds a benchmark, "area.figure/ours" or "area.figure/peer", that reports its own time.
void add(const char *name, std::function<void(benchmark::State &)> function);
/// Runs the loop of a benchmark and gives the value to the driver, in the unit that figures.json names.
void report(benchmark::State &state, double value);
/// Runs the benchmarks that the command line names, with an application object unless there is one. With --prepare it
/// makes the files they need instead.
int run(int argc, char **argv, void (*prepare)());

}
