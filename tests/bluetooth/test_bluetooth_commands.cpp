// searchAndConnect's retry and failure roads and checkSerialId, in the real workstation
// with the real serial driver, bluetoothctl and rfcomm played by stand-ins.
#include "d_abstract_plugin.h"
#include "d_stand_in_tools.h"
#include "d_test_workstation.h"
#include "i_instruction_target.h"

#include <QtTest>

#include <memory>

namespace {

// Sits before the serial driver as "driver" and notes each instruction with its time.
class DInstructionTap : public IInstructionTarget
{
public:
    explicit DInstructionTap(IInstructionTarget* driver) : m_driver(driver) {}
    EnOpening openInstruction(quint64 id, const QString& instruction, const QVariantMap& parameters,
                              IInstructionReplySink* sink, QString* refusal) override
    {
        (instruction == "changeDevicePath" ? opened : closed) << QDateTime::currentMSecsSinceEpoch();
        return m_driver->openInstruction(id, instruction, parameters, sink, refusal);
    }
    void closeInstruction(quint64 id) override { m_driver->closeInstruction(id); }
    QList<qint64> opened, closed;  // times of "changeDevicePath", of "closeConnection"

private:
    IInstructionTarget* m_driver;
};

struct DRoad {
    const char* name;
    const char* mac;
    const char* verb;  // the verb this road plays its own way
    const char* script;
    // Runs of trust and connect for this address, "changeDevicePath" and "closeConnection" sent,
    // and the least pause between two trusts or two "changeDevicePath".
    int trusts, connects, changeDevicePaths, closeConnections, minPauseMs;
};

} // namespace

class TestBluetoothCommands : public QObject
{
    Q_OBJECT

private slots:
    void connectRetryAndFailureRoads();
    void checkSerialId();
};

// The roads run side by side, one workstation each: only the pauses make them slow.
void TestBluetoothCommands::connectRetryAndFailureRoads()
{
    const DRoad roads[] = {
        {"trust fails 3 times, then connect fails", "00:00:00:00:00:0A", "trust",
         "[ $n -gt 3 ] && echo 'trust succeeded'", 4, 1, 0, 1, 1500},
        {"trust fails 4 times", "00:00:00:00:00:0B", "trust", "echo 'Device not available'", 4, 0, 0, 1, 1500},
        {"connect fails", "00:00:00:00:00:0C", "connect", "echo 'Failed to connect'", 1, 1, 0, 1, 0},
        {"changeDevicePath refused", "00:00:00:00:00:0D", "bind", "ln -sfn / /dev/rfcomm0", 1, 1, 6, 2, 1000},
        {"remove crashes", "00:00:00:00:00:0E", "remove", "kill -SEGV $$", 0, 0, 0, 1, 0},
        {"only quotes and blanks", " '\"' ", "", "", 0, 0, 0, 1, 0},
    };
    DStandInTools tools;
    if (!tools.lockRfcomm())
        QSKIP("/dev/rfcomm0 is a real device here");
    tools.playNormalRoad("/nonexistent");
    tools.play("bluetoothctl", "connect", "[ $mac = 00:00:00:00:00:0D ] && echo 'Connected: yes'");
    tools.play("bluetoothctl", "scan", "echo 'Discovery started'");
    qputenv("PATH", tools.pathVariable());
    std::vector<std::unique_ptr<DTestWorkstation>> stations;
    std::vector<std::unique_ptr<DInstructionTap>> taps;
    QHash<quint64, QVariantMap> results;
    for (const DRoad& road : roads) {
        if (*road.verb)
            tools.play(QByteArray(road.verb) == "bind" ? "rfcomm" : "bluetoothctl", road.verb, road.script, road.mac);
        stations.push_back(std::make_unique<DTestWorkstation>());
        DTestWorkstation& station = *stations.back();
        QString error;
        QVERIFY2(station.setUp(&error), qPrintable(error));
        taps.push_back(std::make_unique<DInstructionTap>(qobject_cast<IInstructionTarget*>(station.driver)));
        station.router.addTarget("driver", taps.back().get());
        QObject::connect(&station.runner, &DCommandRunner::sigFinished, &station.runner,
                         [&results, i = stations.size() - 1](quint64, const QString&, bool, const QVariantMap& r) {
                             results.insert(quint64(i), r);
                         });
        QVERIFY(station.runner.start(station.device, "searchAndConnect", {{"serialId", road.mac}}, &error));
    }
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), int(std::size(roads)), 30000);
    for (int i = 0; i < int(std::size(roads)); ++i) {
        const DRoad& road = roads[i];
        const DInstructionTap& tap = *taps[i];
        QCOMPARE(results.value(i), (QVariantMap{{"doneOk", false}, {"failed", true}}));
        const auto trusts = tools.calls(QStringLiteral("trust ") + road.mac);
        QVERIFY2(trusts.size() == road.trusts, road.name);
        QVERIFY2(tools.calls(QStringLiteral("connect ") + road.mac).size() == road.connects, road.name);
        QVERIFY2(tap.opened.size() == road.changeDevicePaths && tap.closed.size() == road.closeConnections, road.name);
        for (int t = 1; t < trusts.size(); ++t)
            QVERIFY2(trusts.at(t).ms - trusts.at(t - 1).ms >= road.minPauseMs, road.name);
        for (int s = 1; s < road.changeDevicePaths; ++s)
            QVERIFY2(tap.opened.at(s) - tap.opened.at(s - 1) >= road.minPauseMs, road.name);
    }
}

void TestBluetoothCommands::checkSerialId()
{
    const struct {
        QVariant given;
        QString serialId;
    } cases[] = {{QVariant(), ""}, {"  \t ", ""}, {" 00:1A:7D:DA:71:13\n", "00:1A:7D:DA:71:13"}, {"'x'", "'x'"}, {42, "42"}};
    DTestWorkstation station;
    QString error;
    QVERIFY2(station.setUp(&error), qPrintable(error));
    for (const auto& c : cases) {
        const QVariantMap arguments = c.given.isValid() ? QVariantMap{{"serialId", c.given}} : QVariantMap();
        const DTestWorkstation::Outcome outcome = station.run("checkSerialId", arguments, 5000);
        QVERIFY(outcome.finished && outcome.ok);
        QCOMPARE(outcome.results, (QVariantMap{{"serialId", c.serialId}, {"doneOk", !c.serialId.isEmpty()}}));
    }
}

QTEST_GUILESS_MAIN(TestBluetoothCommands)
#include "test_bluetooth_commands.moc"
