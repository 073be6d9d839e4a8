// The main of the benchmarks that run the workstation: they need an application object
// and the build folder (for the plug-ins and the simulator).
#include <benchmark/benchmark.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("HYTORC_BUILD_DIR"))
        qputenv("HYTORC_BUILD_DIR", HYTORC_BUILD_DIR_DEFAULT);
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
