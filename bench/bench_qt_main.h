// The main() of the benchmarks that drive the host and the simulator: a Qt application
// around Google Benchmark, the build folder found as the tests find it.
#ifndef BENCH_QT_MAIN_H
#define BENCH_QT_MAIN_H

#include <benchmark/benchmark.h>

#include <QCoreApplication>

inline int runQtBenchmarks(int argc, char** argv, const char* buildDirDefault)
{
    if (qEnvironmentVariableIsEmpty("HYTORC_BUILD_DIR"))
        qputenv("HYTORC_BUILD_DIR", buildDirDefault);
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

#endif // BENCH_QT_MAIN_H
