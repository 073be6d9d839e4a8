// The tool commands end to end: runtime, serial driver, a pseudo-terminal and the tool
// simulator, checked against the simulator's own record of what it received and sent.
// Then the heartbeat that setKeepAliveFonction hands the serial driver: after 20 s of
// silence the driver sends it, the simulator answers with a NACK, the driver acknowledges
// it, and the tool commands around it are not disturbed. (That no heartbeat cuts into an
// open transaction is the driver's rule, checked in test_driver_serial.)
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include "d_abstract_plugin.h"

#include <QJsonArray>
#include <QtTest>

namespace {
const QByteArray c_heartbeat = QByteArray::fromHex("00018C13") + "GET STATE BATTERY\r\n" + QByteArray::fromHex("FA8D");
const QByteArray c_nack = QByteArray::fromHex("00010800FFF7");
const QByteArray c_ack = QByteArray::fromHex("00014800FFB7");
} // namespace

class TestE2eToolCommands : public QObject
{
    Q_OBJECT

private slots:
    // One process, one link: what listProgram stores serves the commands after it.
    void commandSequence()
    {
        DSimulatedTool tool;
        QVERIFY(tool.start({"--baud", "0", "--record", tool.recordPath()}));
        DTestWorkstation ws;
        QString error;
        QVERIFY2(ws.setUp(&error, tool.linkPath()), qPrintable(error));

        const QVariantMap p5{{"name", "P5"}, {"type", "TQA"}, {"unit", "NM"}, {"torque", "420"}, {"angle", "60"},
                             {"release", "1"}, {"fastener", "RH"}, {"progId", 5}};
        const QVariantMap accepted{{"cmd_success", true}, {"doneOk", true}};
        const struct {
            QString name;
            QVariantMap arguments;
            QVariantMap results;  // the keys checked
            QVariant lockProperty;
        } steps[] = {
            {"listProgram", {}, {{"cmd_success", true}}, {}},
            {"getPresetData", {{"progId", 2u}},
             {{"cmd_success", true},
              {"presetData", QVariantMap{{"name", "P2"}, {"type", "TQA"}, {"unit", "N.m"}, {"torque", 25050},
                                         {"targetAngle", 30}, {"release", "1"}, {"fastener", "RH"}, {"progId", 2}}}},
             {}},
            {"setProgram", {{"progId", 9}}, {{"cmd_success", false}}, {}},
            {"setProgram", {{"progId", 5}},
             {{"cmd_success", true}, {"presetData", QVariantMap{{"targetAngle", "60"}, {"torque", 42000}}}}, {}},
            {"setLock", {{"lock", true}}, accepted, true},
            {"setLock", {{"lock", false}}, accepted, false},
            {"setLevelAccess", {{"level", "l2"}}, accepted, false},
            {"setLevelAccess", {{"level", "L9"}}, {{"cmd_success", false}, {"doneOk", false}}, false},
            {"setPingInterval", {{"interval", 300}}, accepted, false},
            {"setKeepAliveFonction", {}, accepted, false},
        };
        for (const auto& step : steps) {
            const DTestWorkstation::Outcome outcome = ws.run(step.name, step.arguments, 30000);
            QVERIFY2(outcome.finished && outcome.ok, qPrintable(step.name));
            for (auto it = step.results.cbegin(); it != step.results.cend(); ++it)
                QCOMPARE(outcome.results.value(it.key()), it.value());
            QCOMPARE(ws.device->getProperty("lock", QVariant()), step.lockProperty);
        }
        const QVariantList programs = ws.device->getProperty("programList", QVariant()).toList();
        QCOMPARE(programs.size(), 5);
        QCOMPARE(programs.last().toMap(), p5);
        QCOMPARE(ws.device->getProperty("currentProgId", QVariant()), QVariant(5));
        QCOMPARE(ws.router.openCount(), 0);

        const QJsonObject record = tool.stopAndReadRecord();
        QCOMPARE(record.value("requests").toVariant().toStringList(),
                 (QStringList{"GET JOBS PROFILE\r\n", "SET JOBS PROFILE\r\nP5,TQA,NM,420,60,1,RH\r\n",
                              "SET FLAGS OPEN_PROTOCOL\r\nOPEN_PROTOCOL_LOCK\r\n", "SET FLAGS OPEN_PROTOCOL\r\n",
                              "SET ADMIN ACCESS_LEVEL\r\nL2\r\n", "SET ADMIN ACCESS_LEVEL\r\nL9\r\n",
                              "SET PING INTERVAL\r\n300\r\n"}));
        const QJsonObject state = record.value("state").toObject();
        QCOMPARE(state.value("activeProfile").toString(), QStringLiteral("P5"));
        QCOMPARE(state.value("locked").toBool(true), false);
        QCOMPARE(state.value("accessLevel").toString(), QStringLiteral("L2"));
        QCOMPARE(state.value("pingInterval").toInt(), 300);
    }

    // Reports in every shape, in bursts, and inside other commands' transactions on the
    // same link: each one the listener may publish is published once, in order.
    void everyReportPublishedOnce()
    {
        DSimulatedTool tool;
        QVERIFY(tool.start({"--record", tool.recordPath(), "--event-shape", "mixed", "--event-burst", "2",
                            "--event-in-transaction"}));
        DTestWorkstation ws;
        QString error;
        QVERIFY2(ws.setUp(&error, tool.linkPath()), qPrintable(error));
        QVERIFY(ws.runner.start(ws.device, "listenEventsData", {}, &error) != 0);

        // Reports between the commands too, once the listener is there to hear them.
        for (const QString& name : {"getToolInfo", "listProgram", "setPingInterval", "getToolInfo"}) {
            tool.say("event");
            const DTestWorkstation::Outcome outcome = ws.run(name, {}, 30000);
            QVERIFY2(outcome.finished && outcome.results.value("cmd_success").toBool(), qPrintable(name));
        }
        QTest::qWait(1500);
        QCOMPARE(ws.runner.stop(ws.device, "stopListening"), 1);
        QTRY_COMPARE_WITH_TIMEOUT(ws.runner.runningCount(), 0, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(ws.router.openCount(), 0, 5000);

        QVariantList expected;
        QSet<QString> shapes;
        for (const QJsonValue& value : tool.stopAndReadRecord().value("reports").toArray()) {
            const QJsonObject report = value.toObject();
            QVERIFY(report.value("sent").toBool());
            shapes << report.value("shape").toString();
            if (!report.value("published").toBool())
                continue;
            const QStringList fields = report.value("line").toString().split(',');
            expected << QVariantMap{{"date", fields.at(0)}, {"time", fields.at(1)}, {"jobId", fields.at(3)},
                                    {"status", fields.at(13)}, {"convertedTorque", int(fields.at(14).toDouble() * 100)}};
        }
        QCOMPARE(shapes.size(), 5);
        QVERIFY2(expected.size() >= 6, "the reports inside the four transactions at least");
        QCOMPARE(ws.published.size(), expected.size());
        for (int i = 0; i < expected.size(); ++i) {
            const QVariantMap want = expected.at(i).toMap();
            const QVariantMap got = ws.published.at(i).toMap();
            for (auto it = want.cbegin(); it != want.cend(); ++it)
                QCOMPARE(got.value(it.key()), it.value());
        }
    }

    void heartbeatAfterSilence()
    {
        DSimulatedTool tool;
        QVERIFY(tool.start({}));
        DTestWorkstation ws;
        QString error;
        QVERIFY2(ws.setUp(&error, tool.linkPath()), qPrintable(error));
        QByteArray written, read;
        QSignalSpy writes(ws.driver, SIGNAL(sigBytesWritten(QByteArray)));
        QSignalSpy reads(ws.driver, SIGNAL(sigBytesRead(QByteArray)));
        const auto collect = [](QSignalSpy& spy, QByteArray* bytes) {
            for (const QList<QVariant>& call : spy)
                *bytes += call.at(0).toByteArray();
            spy.clear();
        };

        QVERIFY(ws.run("setKeepAliveFonction", {}, 10000).results.value("cmd_success").toBool());
        QVERIFY(ws.run("getToolInfo", {}, 30000).results.value("cmd_success").toBool());
        collect(writes, &written);
        QVERIFY2(!written.contains(c_heartbeat), "no heartbeat while commands talk to the tool");
        written.clear();
        reads.clear();

        QTRY_VERIFY_WITH_TIMEOUT((collect(writes, &written), written.contains(c_heartbeat + c_ack)), 30000);
        collect(reads, &read);
        QCOMPARE(read, c_nack);
        QCOMPARE(written, c_heartbeat + c_ack);

        const DTestWorkstation::Outcome after = ws.run("getToolInfo", {}, 30000);
        QVERIFY(after.results.value("cmd_success").toBool());
        QCOMPARE(after.results.value("deviceInformation").toMap().size(), 9);
    }
};

QTEST_GUILESS_MAIN(TestE2eToolCommands)
#include "test_e2e_tool_commands.moc"
