// getToolInfo latency from the host's order to its results, through the real driver,
// a pseudo-terminal and the simulator pacing its bytes at 115200 baud, next to its floor:
// the engine's 200 ms header delay plus the wire time of every byte exchanged.
#include "d_abstract_plugin.h"
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>


namespace {

constexpr double c_headerDelayMs = 200.0;
constexpr double c_baud = 115200.0;
constexpr double c_bitsPerByte = 10.0;

// Counts the bytes crossing the driver, both ways.
class DByteCounter : public QObject
{
    Q_OBJECT
public:
    qint64 bytes = 0;
public slots:
    void onBytes(const QByteArray& chunk) { bytes += chunk.size(); }
};

void BM_GetToolInfoEndToEnd(benchmark::State& state)
{
    DSimulatedTool tool;
    DTestWorkstation station;
    QString error;
    if (!station.setUp(&error) || !tool.start({"--baud", "115200"}) || !station.openDevice(tool.linkPath())) {
        state.SkipWithError("the workstation or the simulator could not start");
        return;
    }
    // Only the simulator paces its bytes; the host's writes reach the pseudo-terminal at once,
    // so the floor of this set-up counts the tool's bytes, and the full-link floor all of them.
    DByteCounter written;
    DByteCounter read;
    QObject::connect(station.driver, SIGNAL(sigBytesWritten(QByteArray)), &written, SLOT(onBytes(QByteArray)));
    QObject::connect(station.driver, SIGNAL(sigBytesRead(QByteArray)), &read, SLOT(onBytes(QByteArray)));
    for (auto _ : state) {
        written.bytes = 0;
        read.bytes = 0;
        QElapsedTimer clock;
        clock.start();
        const auto outcome = station.run("getToolInfo", {}, 30000);
        const double ms = clock.nsecsElapsed() / 1e6;
        if (!outcome.results.value("cmd_success").toBool()) {
            state.SkipWithError("getToolInfo failed");
            return;
        }
        state.SetIterationTime(ms / 1000.0);
        const auto wireMs = [](qint64 bytes) { return bytes * c_bitsPerByte / c_baud * 1000.0; };
        const double floorMs = c_headerDelayMs + wireMs(written.bytes + read.bytes);
        const double pacedFloorMs = c_headerDelayMs + wireMs(read.bytes);
        state.counters["bytes"] = double(written.bytes + read.bytes);
        state.counters["floor_ms"] = floorMs;
        state.counters["paced_floor_ms"] = pacedFloorMs;
        state.counters["over_paced_floor_ms"] = ms - pacedFloorMs;
    }
}

} // namespace

BENCHMARK(BM_GetToolInfoEndToEnd)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(21)->ReportAggregatesOnly(true);

#include "bench_e2e.moc"
