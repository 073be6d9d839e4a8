// The heartbeat that setKeepAliveFonction hands the serial driver, end to end: after
// 20 s of silence the driver sends it, the simulator answers with a NACK, the driver
// acknowledges it, and the tool commands around it are not disturbed. (That no heartbeat
// cuts into an open transaction is the driver's rule, checked in test_driver_serial.)
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include "d_abstract_plugin.h"

#include <QtTest>

namespace {
const QByteArray c_heartbeat = QByteArray::fromHex("00018C13") + "GET STATE BATTERY\r\n" + QByteArray::fromHex("FA8D");
const QByteArray c_nack = QByteArray::fromHex("00010800FFF7");
const QByteArray c_ack = QByteArray::fromHex("00014800FFB7");
} // namespace

class TestE2eKeepAlive : public QObject
{
    Q_OBJECT

private slots:
    void heartbeatAfterSilence();
};

void TestE2eKeepAlive::heartbeatAfterSilence()
{
    DSimulatedTool tool;
    QVERIFY(tool.start({}));
    DTestWorkstation ws;
    QString error;
    QVERIFY2(ws.setUp(&error), qPrintable(error));
    QVERIFY(ws.openDevice(tool.linkPath()));
    QByteArray written;
    QByteArray read;
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

QTEST_GUILESS_MAIN(TestE2eKeepAlive)
#include "test_e2e_keep_alive.moc"
