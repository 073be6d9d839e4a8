// searchAndConnect from the host's order to its results, with bluetoothctl and rfcomm
// played by instant stand-ins and /dev/rfcomm0 bound to the simulator, next to the sum
// of the fixed pauses between its steps: what is left is the cost of the processes and
// of opening the port.
#include "d_abstract_plugin.h"
#include "d_simulated_tool.h"
#include "d_stand_in_tools.h"
#include "d_test_workstation.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>

namespace {

// remove, power on, trust, connect, release, bind, then the port: 500 + 500 + 200 + 200 + 300 + 500 ms.
constexpr double c_pausesMs = 2200.0;

void BM_SearchAndConnect(benchmark::State& state)
{
    DStandInTools tools;
    DSimulatedTool tool;
    DTestWorkstation station;
    QString error;
    if (!tools.lockRfcomm() || !tool.start({}) || !station.setUp(&error)) {
        state.SkipWithError("/dev/rfcomm0 is a real device, or the workstation or the simulator could not start");
        return;
    }
    tools.playNormalRoad(tool.linkPath());
    qputenv("PATH", tools.pathVariable());
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        const auto outcome = station.run("searchAndConnect", {{"serialId", "00:1A:7D:DA:71:13"}}, 30000);
        const double ms = clock.nsecsElapsed() / 1e6;
        if (!outcome.results.value("doneOk").toBool()) {
            state.SkipWithError("searchAndConnect failed");
            return;
        }
        state.SetIterationTime(ms / 1000.0);
        state.counters["pauses_ms"] = c_pausesMs;
        state.counters["over_pauses_ms"] = ms - c_pausesMs;
    }
}

} // namespace

BENCHMARK(BM_SearchAndConnect)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
