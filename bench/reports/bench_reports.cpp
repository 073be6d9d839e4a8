// Tightening reports at the link's capacity: the simulator sends them as fast as its
// 115200-baud pacing allows while listenEventsData publishes them through the real
// driver and a pseudo-terminal. Prints the reports sent (from the simulator's own
// record), published and lost, and the host's CPU time as a share of one core.
// HYTORC_BENCH_SECONDS shortens the run (default 60).
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QTimer>

#include <ctime>

namespace {

// Once the simulator falls quiet, long enough for its queue and the pseudo-terminal to drain.
constexpr int c_drainMs = 2000;

double processCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + now.tv_nsec / 1e9;
}

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

// Reports the listener should have published, counting every copy the link carried,
// from the first one it heard (the simulator starts before the listener does; its job
// ids count up from 1).
int publishableSent(const QJsonObject& record, int firstJobId)
{
    int count = 0;
    for (const QJsonValue& value : record.value("reports").toArray()) {
        const QJsonObject report = value.toObject();
        const int jobId = report.value("line").toString().section(QLatin1Char(','), 3, 3).toInt();
        if (report.value("sent").toBool() && report.value("published").toBool() && jobId >= firstJobId)
            count += report.value("copies").toInt();
    }
    return count;
}

void BM_ReportsAtLinkCapacity(benchmark::State& state)
{
    const int seconds = qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS") > 0
        ? qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS") : 60;
    DSimulatedTool tool;
    DTestWorkstation station;
    QString error;
    // A period of 1 ms: the simulator tops its queue up whenever the line has taken it.
    if (!station.setUp(&error) || !tool.start({"--record", tool.recordPath(), "--event-period", "1"})
        || !station.openDevice(tool.linkPath())) {
        state.SkipWithError("the workstation or the simulator could not start");
        return;
    }
    int published = 0;
    int firstJobId = 0;
    QObject::connect(&station.runner, &DCommandRunner::sigResultsUpdated, &station.runner,
                     [&](quint64, const QString&, const QVariantMap& changed) {
                         if (!changed.contains("eventData"))
                             return;
                         if (++published == 1)
                             firstJobId = changed.value("eventData").toMap().value("jobId").toInt();
                     });
    for (auto _ : state) {
        if (station.runner.start(station.device, "listenEventsData", {}, &error) == 0) {
            state.SkipWithError(qPrintable(error));
            return;
        }
        QElapsedTimer wall;
        wall.start();
        const double cpuAtStart = processCpuSeconds();
        spin(seconds * 1000);
        const double wallSeconds = wall.nsecsElapsed() / 1e9;
        const double cpuShare = (processCpuSeconds() - cpuAtStart) / wallSeconds;
        state.SetIterationTime(wallSeconds);
        tool.say("quiet");
        spin(c_drainMs);
        station.runner.stop(station.device, "stopListening");
        spin(100);
        const int sent = publishableSent(tool.stopAndReadRecord(), firstJobId);
        state.counters["reports_sent"] = sent;
        state.counters["published"] = published;
        state.counters["lost"] = sent - published;
        state.counters["reports_per_s"] = sent / wallSeconds;
        state.counters["host_cpu_pct"] = 100.0 * cpuShare;
    }
}

} // namespace

BENCHMARK(BM_ReportsAtLinkCapacity)->Unit(benchmark::kSecond)->UseManualTime()->Iterations(1);
