#include "BenchProgram.h"

#include <optional>

#include <QCoreApplication>

void BenchProgram::add(const char *name, std::function<void(benchmark::State &)> function)
{
    benchmark::RegisterBenchmark(name, std::move(function))
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void BenchProgram::report(benchmark::State &state, double value)
{
    for (auto _ : state)
        state.SetIterationTime(value * 1e-3); // the driver reads milliseconds
}

int BenchProgram::run(int argc, char **argv, void (*prepare)())
{
    std::optional<QCoreApplication> application;
    if (!QCoreApplication::instance())
        application.emplace(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--prepare") == 0) {
        prepare();
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
