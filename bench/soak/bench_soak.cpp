// Soak: N commands of every kind in one process, through the whole host chain and the
// tool simulator; one run in ten goes to a second simulator with a faulty link. Prints
// the commands run and failed and the resident memory at the start, after the first
// 100 rounds and at the end (and a progress line on stderr every 250 rounds). Usage: bench_soak [N] (default 20).
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <cstdio>

namespace {

// One row per command: its name and the parameters it runs with.
struct DSoakRow {
    QString command;
    QVariantMap parameters;
};

// listenEventsData is measured by bench_reports; the Bluetooth commands need the system's
// Bluetooth programs and have a benchmark of their own.
const QList<DSoakRow> c_rows{
    {"getToolInfo", {}},
    {"listProgram", {}},
    {"setProgram", {{"progId", 2}}},
    {"getPresetData", {{"progId", 2}}},
    {"setLock", {{"lock", true}}},
    {"setLock", {{"lock", false}}},
    {"setLevelAccess", {{"level", "L2"}}},
    {"setPingInterval", {{"interval", 500}}},
    {"setKeepAliveFonction", {}},
    {"checkSerialId", {{"serialId", "00:1A:7D:DA:71:13"}}},
};

// Setting and Bluetooth commands also say it in "doneOk"; the others only in "cmd_success".
bool succeeded(const DTestWorkstation::Outcome& outcome)
{
    const QVariantMap& results = outcome.results;
    return outcome.finished && results.value(results.contains("cmd_success") ? "cmd_success" : "doneOk").toBool();
}

// Noise, cut and doubled writes, bad checksums, ignored headers, replies in pieces.
const QStringList c_faults{"--noise", "30", "--split-writes", "50", "--duplicate-writes", "10", "--bad-checksums",
                           "30", "--ignore-headers", "3", "--reply-frames", "3", "--seed", "7"};

long residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // Only the figures: no log of ours nor of the simulators (they inherit the rules).
    qputenv("QT_LOGGING_RULES", "*.info=false;*.warning=false;*.critical=false");
    if (qEnvironmentVariableIsEmpty("HYTORC_BUILD_DIR"))
        qputenv("HYTORC_BUILD_DIR", HYTORC_BUILD_DIR_DEFAULT);
    const int rounds = argc > 1 ? QByteArray(argv[1]).toInt() : 20;
    DSimulatedTool clean;
    DSimulatedTool faulty;
    DTestWorkstation station;
    QString error;
    if (rounds <= 0 || !clean.start({}) || !faulty.start(c_faults) || !station.setUp(&error)) {
        std::fprintf(stderr, "bench_soak: cannot start (N = %d) %s\n", rounds, qPrintable(error));
        return 2;
    }
    const long startKb = residentKb();
    long after100Kb = -1;
    int run = 0, failed = 0, underFaults = 0, failedUnderFaults = 0;
    int onFaulty = -1;
    QElapsedTimer clock;
    clock.start();
    for (int round = 0; round < rounds; ++round) {
        const bool faultyRound = round % 10 == 9;
        if (int(faultyRound) != onFaulty && !station.openDevice(faultyRound ? faulty.linkPath() : clean.linkPath())) {
            std::fprintf(stderr, "bench_soak: cannot open the simulator's port\n");
            return 2;
        }
        onFaulty = faultyRound;
        for (const DSoakRow& row : c_rows) {
            const DTestWorkstation::Outcome outcome = station.run(row.command, row.parameters, 60000);
            const bool ok = succeeded(outcome);
            ++run;
            failed += !ok;
            underFaults += faultyRound;
            failedUnderFaults += faultyRound && !ok;
        }
        if (round + 1 == 100)
            after100Kb = residentKb();
        if ((round + 1) % 250 == 0)
            std::fprintf(stderr, "bench_soak: %d rounds, %d failed, RSS %ld kB, %.0f s\n", round + 1, failed,
                         residentKb(), clock.elapsed() / 1000.0);
    }
    std::printf("commands run %d (%d under faults), failed %d (%d under faults), %.1f s\n", run, underFaults, failed,
                failedUnderFaults, clock.elapsed() / 1000.0);
    std::printf("RSS kB: start %ld, after 100 rounds %s, end %ld\n", startKb,
                after100Kb < 0 ? "-" : qPrintable(QString::number(after100Kb)), residentKb());
    return 0;
}
