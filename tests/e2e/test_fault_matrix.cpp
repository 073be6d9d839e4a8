// Every tool command against every fault the simulator can inject: the right result
// or "cmd_success" false, never a hang, no instruction left open. Each cell has its own
// simulator and host, and all cells run at once: a silent tool takes the engine's whole
// retry road (about 18 s) to fail, and that is paid once, not once per command.
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include "d_abstract_plugin.h"

#include <QtTest>

#include <memory>

namespace {

enum EnOutcome { CeSucceeds, CeFails, CeEither };

struct DFault {
    const char* name;
    QStringList simArguments;
    EnOutcome toolCommands;  // the outcome of a command that talks to the tool
};

// Where the protocol cannot tell a spoilt reply from a good one, the row says so.
const DFault c_faults[] = {
    {"none", {}, CeSucceeds},
    {"ignored headers", {"--ignore-headers=2"}, CeSucceeds},
    {"split writes", {"--split-writes=100"}, CeSucceeds},
    {"split reply", {"--reply-frames=3"}, CeSucceeds},
    {"slow reply", {"--reply-delay=1500"}, CeSucceeds},
    {"letter noise", {"--noise=100"}, CeSucceeds},
    // A stray 0x00 starts a frame and may swallow the real one; a retry may recover.
    {"noise with a NUL", {"--noise=100", "--noise-nul"}, CeEither},
    // A burst of 0x00 and 0xFF read in the same chunk as the reply (a loaded host reads
    // late) is purged with it, or its 0x00 bytes swallow the reply: only a retry recovers.
    {"junk bursts", {"--junk-before-reply"}, CeEither},
    {"duplicated writes", {"--duplicate-writes=100"}, CeSucceeds},
    // The checksum is not checked on receipt: corrupted frames are taken as good.
    {"bad checksums", {"--bad-checksums=100"}, CeSucceeds},
    {"error replies", {"--error-replies=7"}, CeFails},
    {"silence", {"--silent"}, CeFails},
    {"dropped link", {"--drop-after=2"}, CeFails},
};

struct DOrder {
    const char* name;
    QVariantMap arguments;
    bool talksToTool;
};

const DOrder c_orders[] = {
    {"getToolInfo", {}, true},
    {"listProgram", {}, true},
    {"setProgram", {{"progId", 2}}, true},
    {"setLock", {{"lock", true}}, true},
    {"setLevelAccess", {{"level", "L2"}}, true},
    {"setPingInterval", {{"interval", 300}}, true},
    {"getPresetData", {{"progId", 2u}}, false},
    {"setKeepAliveFonction", {}, false},
    {"listenEventsData", {}, false},
};

const QVariantList c_programs{
    QVariantMap{{"name", "P1"}, {"type", "TQ"}, {"unit", "FTLB"}, {"torque", "120"}, {"progId", 1}},
    QVariantMap{{"name", "P2"}, {"type", "TQA"}, {"unit", "NM"}, {"torque", "250"}, {"progId", 2}}};

struct DCell {
    const DFault* fault;
    const DOrder* order;
    DSimulatedTool tool;
    DTestWorkstation ws;

    QString name() const { return QStringLiteral("%1 / %2").arg(fault->name, order->name); }
    bool listens() const { return QLatin1String(order->name) == QLatin1String("listenEventsData"); }
};

} // namespace

class TestFaultMatrix : public QObject
{
    Q_OBJECT

private slots:
    void everyCommandUnderEveryFault()
    {
        std::vector<std::unique_ptr<DCell>> cells;
        for (const DFault& fault : c_faults) {
            for (const DOrder& order : c_orders) {
                cells.push_back(std::make_unique<DCell>());
                DCell& cell = *cells.back();
                cell.fault = &fault;
                cell.order = &order;
                cell.tool.launch(fault.simArguments + (cell.listens() ? QStringList{"--event-period=300"} : QStringList()));
            }
        }
        for (auto& cell : cells) {
            QString error;
            QVERIFY2(cell->tool.waitUntilReady() && cell->ws.setUp(&error, cell->tool.linkPath()),
                     qPrintable(cell->name() + error));
            cell->ws.device->setProperty("programList", c_programs, false);
        }
        for (auto& cell : cells) {
            QString error;
            QVERIFY2(cell->ws.start(cell->order->name, cell->order->arguments, &error), qPrintable(cell->name() + error));
        }
        // Listeners are stopped the host's way once they have had time to hear a few reports.
        QTest::qWait(3000);
        for (auto& cell : cells) {
            if (cell->listens())
                QCOMPARE(cell->ws.runner.stop(cell->ws.device, "stopListening"), 1);
        }
        const auto unfinished = [&] {
            return std::count_if(cells.begin(), cells.end(), [](const auto& cell) { return !cell->ws.last.finished; });
        };
        QTRY_COMPARE_WITH_TIMEOUT(unfinished(), 0l, 40000);

        for (auto& cell : cells) {
            const QString name = cell->name();
            QTRY_VERIFY2_WITH_TIMEOUT(cell->ws.router.openCount() == 0, qPrintable(name + ": an instruction left open"),
                                      2000);
            const bool success = cell->ws.last.results.value("cmd_success").toBool();
            if (cell->listens()) {
                // Reports are sent whatever the fault; only a NUL in the noise may swallow them.
                QVERIFY2(!cell->ws.published.isEmpty() || cell->fault->toolCommands == CeEither, qPrintable(name));
            } else if (!cell->order->talksToTool || cell->fault->toolCommands == CeSucceeds) {
                QVERIFY2(success, qPrintable(name + ": should succeed"));
            } else if (cell->fault->toolCommands == CeFails) {
                QVERIFY2(!success, qPrintable(name + ": should fail"));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestFaultMatrix)
#include "test_fault_matrix.moc"
