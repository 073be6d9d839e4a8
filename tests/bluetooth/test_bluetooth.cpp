// The Bluetooth commands with bluetoothctl and rfcomm played by stand-ins (or the real bluetoothctl
// on a system bus of the test's own, without the bluetooth service): hytorc --bluetooth
// as a technician runs it, then searchAndConnect's retry and failure roads and checkSerialId
// in the real workstation with the real serial driver.
#include "d_abstract_plugin.h"
#include "d_hytorc_process.h"
#include "d_simulated_tool.h"
#include "d_stand_in_tools.h"
#include "d_test_workstation.h"
#include "i_instruction_target.h"

#include <QJsonArray>
#include <QtTest>

#include <csignal>
#include <memory>

namespace {

const QString c_mac = QStringLiteral("00:1A:7D:DA:71:13");

// hytorc --bluetooth --json with the stand-ins first on PATH; `interruptWhen` (a text of "calls") sends Ctrl-C.
std::unique_ptr<DTimedHytorc> hytorc(const DStandInTools& tools, const QStringList& arguments,
                                     const QString& interruptWhen = QString())
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", tools.pathVariable());
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + tools.dir() + "/bus");  // a file that stands for it
    auto run = std::make_unique<DTimedHytorc>(QStringList{"--bluetooth", "--json"} + arguments, environment);
    if (!interruptWhen.isEmpty()) {
        QTest::qWaitFor([&] { return !tools.calls(interruptWhen).isEmpty(); }, 20000);
        ::kill(pid_t(run->process.processId()), SIGINT);
    }

    run->waitForEnd(60000);
    return run;
}

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

class TestBluetooth : public QObject
{
    Q_OBJECT

private slots:
    // The normal road: exact command lines, the pauses between them, then a tool command on /dev/rfcomm0.
    void connectsThenUsesTheTool()
    {
        DStandInTools tools;
        if (!tools.lockRfcomm())
            QSKIP("/dev/rfcomm0 is a real device here");
        DSimulatedTool tool;
        QVERIFY(tool.start({}));
        tools.playNormalRoad(tool.linkPath());
        tools.play("bluetoothctl", "trust", "sleep 0.5; echo \"Changing $mac trust succeeded\"");  // long enough to be seen
        const auto run = hytorc(tools, {"--verbose", "searchAndConnect", "serialId='" + c_mac + "'", "getToolInfo"});
        QVERIFY2(run->process.exitCode() == 0, run->errText().constData());
        QCOMPARE(run->successes(), (QList<bool>{true, true}));
        QCOMPARE(run->json(0).value("results").toObject().toVariantMap(), (QVariantMap{{"doneOk", true}, {"failed", false}}));
        const QList<DStandInTools::DCall> calls = tools.calls();
        const QStringList expected{"hytorc bluetoothctl remove " + c_mac, "hytorc bluetoothctl power on",
                                   "timeout bluetoothctl trust " + c_mac, "timeout bluetoothctl connect " + c_mac,
                                   "hytorc rfcomm release 0", "hytorc rfcomm bind 0 " + c_mac + " 1"};
        const int pauses[] = {500, 500, 200, 200, 300};
        QCOMPARE(calls.size(), expected.size());
        for (int i = 0; i < calls.size(); ++i) {
            QCOMPARE(calls.at(i).line, expected.at(i));
            if (i > 0)
                QVERIFY2(calls.at(i).ms - calls.at(i - 1).ms >= pauses[i - 1], qPrintable(expected.at(i)));
        }
        QCOMPARE(run->count("hytorc: searchAndConnect: step 3 of 6, trusting the tool (bluetoothctl trust " + c_mac.toUtf8()
                            + "): up to 10 s"), 1);

        // The station service binds the tool the same way, then listens on the port it opened.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH", tools.pathVariable());
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + tools.dir() + "/bus");
        QTemporaryDir state;
        DTimedHytorc station({"--bluetooth", c_mac, "--journal", state.filePath("r.db")}, environment, "hytorcd");
        QVERIFY2(QTest::qWaitFor([&] { return station.count("listening") == 1; }, 30000), station.errText().constData());
        QCOMPARE(tools.calls().size(), 2 * expected.size());
        station.process.terminate();
        QVERIFY(station.waitForEnd(2000));
        QCOMPARE(station.process.exitCode(), 0);
    }

    // Sorted, first name kept, addresses upper-cased, other devices skipped, one line per chunk that adds a tool.
    void detectionStreamsEachNewList()
    {
        DStandInTools tools;
        tools.play("bluetoothctl", "devices", "echo 'Device 00:1A:7D:DA:71:13 HYTORC LION 2'; echo 'Device 11:22:33:44:55:66 Speaker'");
        tools.play("bluetoothctl", "scan", "sleep 0.3; echo '[NEW] Device 00:1a:7d:da:71:14 hytorc-x'\n"
                                           "sleep 0.3; echo '[CHG] Device 00:1A:7D:DA:71:13 RSSI: -61'\n"
                                           "sleep 0.3; echo '[NEW] Device 00:1A:7D:DA:71:13 HYTORC renamed'\n"
                                           "echo 'HYTORC without address'; echo '[NEW] Device 00:1A:7D:DA:71:10 HYTORC A'");
        const auto run = hytorc(tools, {"startDetection"});
        QVERIFY2(run->process.exitCode() == 0, run->errText().constData());
        const QJsonObject a{{"sn", "00:1A:7D:DA:71:10"}, {"mac", "HYTORC A"}};
        const QJsonObject lion{{"sn", "00:1A:7D:DA:71:13"}, {"mac", "HYTORC LION 2"}};
        const QJsonObject lower{{"sn", "00:1A:7D:DA:71:14"}, {"mac", "HYTORC Tool"}};
        const QList<QJsonArray> expected{{lion}, {lion, lower}, {a, lion, lower}};
        QCOMPARE(run->out.size(), expected.size() + 1);
        for (int i = 0; i < expected.size(); ++i)
            QCOMPARE(run->json(i).value("update").toObject().value("lastResults").toArray(), expected.at(i));
        QCOMPARE(run->successes(), QList<bool>{true});
        const auto calls = tools.calls();
        QCOMPARE(calls.size(), 2);
        QCOMPARE(calls.at(0).line, QStringLiteral("hytorc bluetoothctl devices"));
        QCOMPARE(calls.at(1).line, QStringLiteral("stdbuf -oL bluetoothctl --timeout 10 scan on"));
    }

    void nothingHangsOrOutlivesHytorc_data()
    {
        QTest::addColumn<QString>("verb");  // the bluetoothctl verbs played their own way
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("interrupt");  // Ctrl-C once the verb has started
        QTest::addColumn<QString>("missing");  // program taken off PATH, "bus", or "service" (the real bluetoothctl)
        QTest::addColumn<QString>("message");
        const QByteArray hang = "sleep 600 & echo \"0 $! sleep\" >> \"$here/calls\"; wait";
        const QStringList connect{"searchAndConnect", "serialId=" + c_mac};
        QTest::newRow("power on hangs: --timeout names it") << "power" << hang << QStringList{"--timeout", "1"} + connect
            << false << "" << "hytorc: bluetoothctl power on did not answer in 1 s: is the bluetooth service running?\n";
        QTest::newRow("listing and scan hang: the scan is named, not the listing's sleep") << "devices scan" << hang << QStringList{
            "--timeout", "4", "startDetection"} << false << "" << "hytorc: bluetoothctl --timeout 10 scan on did not answer in 4 s: ";
        QTest::newRow("trust under timeout hangs: Ctrl-C") << "trust" << hang << connect << true << "" << "";
        QTest::newRow("connect refused") << "connect" << QByteArray("echo 'Failed to connect'") << connect << false << ""
            << "hytorc: searchAndConnect failed: is the tool switched on, in range and free of another host? "
               "(bluetoothctl info ADDRESS tells more)\n";
        QTest::newRow("no bluetoothctl") << "" << QByteArray() << connect << false << "bluetoothctl"
            << "hytorc: bluetoothctl not found on PATH: install the bluez package (bash scripts/setup.sh)\n";
        QTest::newRow("no system bus") << "" << QByteArray() << connect << false << "bus" << "hytorc: no system bus at ";
        QTest::newRow("bus without the service: --timeout ends the scan") << "" << QByteArray()
            << QStringList{"--timeout", "3", "startDetection"} << false << "service"
            << "hytorc: bluetoothctl --timeout 10 scan on did not answer in 3 s: the bluetooth service (org.bluez) is not on "
               "the system bus: start it (service bluetooth start)\n";
        QTest::newRow("no port open yet") << "" << QByteArray() << QStringList{"getToolInfo"} << false << ""
            << "hytorc: getToolInfo: no port is open yet; searchAndConnect serialId=ADDRESS opens one, before it";
    }

    void nothingHangsOrOutlivesHytorc()
    {
        QFETCH(QString, verb);
        QFETCH(QByteArray, script);
        QFETCH(QStringList, arguments);
        QFETCH(bool, interrupt);
        QFETCH(QString, missing);
        QFETCH(QString, message);
        DStandInTools tools;
        tools.playNormalRoad("/nonexistent");
        for (const QString& played : verb.split(' '))
            tools.play("bluetoothctl", played, script);
        if (missing == "bus")
            QFile::remove(tools.dir() + "/bus");
        if (missing == "service") {
            QVERIFY(QFile::remove(tools.dir() + "/bluetoothctl") && tools.startSystemBus());
        } else if (!missing.isEmpty() && missing != "bus") {
            tools.remove(missing);
        }
        const auto run = hytorc(tools, arguments, interrupt ? verb : "");
        QCOMPARE(run->process.exitCode(), 1);
        const QByteArray err = run->errText();
        QVERIFY2(err.startsWith(message.toUtf8()) && err.count('\n') <= 1, err.constData());
        QCOMPARE(tools.calls().isEmpty(), !missing.isEmpty() || verb.isEmpty());
        for (const auto& call : tools.calls()) {  // gone, or a zombie
            QFile stat(QStringLiteral("/proc/%1/stat").arg(call.pid));
            QVERIFY2(!stat.open(QIODevice::ReadOnly) || stat.readAll().contains(") Z "), qPrintable(call.line));
        }
    }

    // The roads run side by side, one workstation each: only the pauses make them slow.
    void connectRetryAndFailureRoads()
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
        for (const DRoad& road : roads) {
            if (*road.verb)
                tools.play(QByteArray(road.verb) == "bind" ? "rfcomm" : "bluetoothctl", road.verb, road.script, road.mac);
            stations.push_back(std::make_unique<DTestWorkstation>());
            DTestWorkstation& station = *stations.back();
            QString error;
            QVERIFY2(station.setUp(&error), qPrintable(error));
            taps.push_back(std::make_unique<DInstructionTap>(qobject_cast<IInstructionTarget*>(station.driver)));
            station.router.addTarget("driver", taps.back().get());
            QVERIFY(station.start("searchAndConnect", {{"serialId", road.mac}}, &error));
        }
        QTRY_VERIFY_WITH_TIMEOUT(std::all_of(stations.begin(), stations.end(), [](const auto& s) { return s->last.finished; }),
                                 30000);
        for (int i = 0; i < int(std::size(roads)); ++i) {
            const DRoad& road = roads[i];
            const DInstructionTap& tap = *taps[i];
            QCOMPARE(stations[i]->last.results, (QVariantMap{{"doneOk", false}, {"failed", true}}));
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

    void checkSerialId()
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
};

QTEST_GUILESS_MAIN(TestBluetooth)
#include "test_bluetooth.moc"
