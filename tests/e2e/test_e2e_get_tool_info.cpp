// getToolInfo through every real layer: runtime -> plug-in -> serial driver ->
// pseudo-terminal -> tool simulator, and back, on a clean and on a faulty link, and on
// a link dropped mid-reply (the whole retry road on the real timers, about 18 s).
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>
#include <QtTest>

namespace {

const QVariantMap c_toolInfo{{"model", "LION-4"},       {"serial", "HYT99Z0001"}, {"uic_fw", "3.0.2"},
                             {"mdc_fw", "2.1.0"},       {"bsm_fw", "1.4.4"},      {"ublox_fw", "4.10"},
                             {"cycle_count", "20417"}, {"cal_date", "2026-03-01"}, {"pcb_version", "PCB-D1"}};

} // namespace

class TestE2eGetToolInfo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void identificationFromTheTool_data();
    void identificationFromTheTool();
    void droppedLinkEndsCleanlyAndReopens();

private:
    QTemporaryFile m_state;
    DSimulatedTool* m_tool = nullptr;
    DTestWorkstation* m_station = nullptr;
};

void TestE2eGetToolInfo::initTestCase()
{
    QVERIFY(m_state.open());
    m_state.write(QJsonDocument(QJsonObject{{"toolInfo", QJsonObject::fromVariantMap(c_toolInfo)}}).toJson());
    m_state.flush();
}

void TestE2eGetToolInfo::init()
{
    m_tool = new DSimulatedTool;
    m_station = new DTestWorkstation;
    QString error;
    QVERIFY2(m_station->setUp(&error), qPrintable(error));
}

void TestE2eGetToolInfo::cleanup()
{
    delete m_station;
    delete m_tool;
}

void TestE2eGetToolInfo::identificationFromTheTool_data()
{
    QTest::addColumn<QStringList>("faults");
    QTest::newRow("clean link") << QStringList();
    // No junk burst here: read in one chunk with the reply (a loaded machine does that), its
    // stray 0x00 bytes start frames that swallow the reply, a case the protocol cannot
    // recover from. The engine's own tests judge junk chunks.
    QTest::newRow("faulty link") << QStringList{"--ignore-headers", "1", "--split-writes", "100", "--noise", "100",
                                                "--reply-frames", "3", "--seed", "7"};
}

void TestE2eGetToolInfo::identificationFromTheTool()
{
    QFETCH(QStringList, faults);
    QVERIFY(m_tool->start(QStringList{"--state", m_state.fileName()} + faults));
    QVERIFY(m_station->openDevice(m_tool->linkPath()));

    const auto outcome = m_station->run("getToolInfo", {}, 60000);
    QVERIFY2(outcome.finished, "getToolInfo never finished");
    QCOMPARE(outcome.results.value("cmd_success"), QVariant(true));
    QCOMPARE(outcome.results.value("deviceInformation").toMap(), c_toolInfo);
    QCOMPARE(m_station->router.openCount(), 0);

    // The link is left as good as it was found: the next command works too.
    const auto again = m_station->run("getToolInfo", {}, 60000);
    QCOMPARE(again.results.value("cmd_success"), QVariant(true));
}

void TestE2eGetToolInfo::droppedLinkEndsCleanlyAndReopens()
{
    // Frames the tool receives: header, request, the ACK of the first of three reply frames.
    QVERIFY(m_tool->start({"--reply-frames", "3", "--drop-after", "3", "--reopen-after", "300"}));
    QVERIFY(m_station->openDevice(m_tool->linkPath()));

    const auto outcome = m_station->run("getToolInfo", {}, 60000);
    QVERIFY2(outcome.finished, "a dropped link must not hang the command");
    QCOMPARE(outcome.results.value("cmd_success"), QVariant(false));
    QCOMPARE(m_station->router.openCount(), 0);

    QVERIFY(m_station->openDevice(m_tool->linkPath()));
    const auto after = m_station->run("getToolInfo", {}, 60000);
    QCOMPARE(after.results.value("cmd_success"), QVariant(true));
    QCOMPARE(after.results.value("deviceInformation").toMap().size(), 9);
}

QTEST_GUILESS_MAIN(TestE2eGetToolInfo)
#include "test_e2e_get_tool_info.moc"
