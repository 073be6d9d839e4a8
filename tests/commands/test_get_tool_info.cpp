// getToolInfo through the real plug-in library, with a recording stand-in for the host's
// instruction routing: the instructions it sends and the map it makes of each reply.
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "hytorc_hcp_frame.h"
#include "i_instruction_router.h"

#include <QPluginLoader>
#include <QSignalSpy>
#include <QtTest>

namespace {

class RecordingRouter : public IInstructionRouter
{
public:
    quint64 openInstruction(const QString& target, const QString& instruction, const QVariantMap& parameters,
                            int timeout, ReplyHandler onReply, QString*) override
    {
        sent << QStringLiteral("%1/%2/%3/%4").arg(target, instruction).arg(timeout).arg(parameters.size());
        writes << parameters.value("frame").toByteArray();
        handlers.insert(++lastId, onReply);
        return lastId;
    }
    bool closeInstruction(quint64 id) override
    {
        closed << id;
        return handlers.remove(id) > 0;
    }
    void deliver(const QByteArray& bytes) { handlers.value(1)(1, {{"frame", bytes}, {"number", ++chunk}}); }

    QStringList sent;
    QList<QByteArray> writes;
    QList<quint64> closed;
    QHash<quint64, ReplyHandler> handlers;
    quint64 lastId = 0;
    int chunk = 0;
};

const QByteArray c_nineLines = "LION-2\r\nHYT24A0137\r\n2.4.1\r\n1.9.0\r\n1.2.3\r\n4.04\r\n1873\r\n2025-09-14\r\nPCB-C3\r\n";

} // namespace

class TestGetToolInfo : public QObject
{
    Q_OBJECT

private slots:
    void replies_data();
    void replies();
};

void TestGetToolInfo::replies_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QVariant>("information");
    QTest::newRow("nine lines and one more")
        << "RESPONSE\r\nGET ADMIN TOOL_INFO\r\n" + c_nineLines + "extra\r\nERRORCODE,0\r\nPASSED\r\n" << true
        << QVariant(QVariantMap{{"model", "LION-2"}, {"serial", "HYT24A0137"}, {"uic_fw", "2.4.1"},
                                {"mdc_fw", "1.9.0"}, {"bsm_fw", "1.2.3"}, {"ublox_fw", "4.04"},
                                {"cycle_count", "1873"}, {"cal_date", "2025-09-14"}, {"pcb_version", "PCB-C3"}});
    QTest::newRow("three lines") << QByteArray("HCD\r\nM\r\nS\r\nF\r\nPASSED\r\n") << true
                                 << QVariant(QVariantMap{{"model", "M"}, {"serial", "S"}, {"uic_fw", "F"}});
    QTest::newRow("empty") << QByteArray("RESPONSE\r\nERRORCODE,0\r\nPASSED\r\n") << true << QVariant(QVariantMap());
    QTest::newRow("tool error") << QByteArray("RESPONSE\r\nERRORCODE,4\r\n") << false << QVariant();
}

void TestGetToolInfo::replies()
{
    QFETCH(QByteArray, payload);
    QFETCH(bool, success);
    QFETCH(QVariant, information);
    QPluginLoader loader(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins/libp_device_hytorc.so");
    QScopedPointer<IPlugin> instance(qobject_cast<IPlugin*>(loader.instance())->createInstance(QUuid::createUuid()));
    auto* plugin = dynamic_cast<DAbstractPlugin*>(instance.data());
    RecordingRouter router;
    plugin->setInstructionRouter(&router);
    plugin->initPluginCommands();
    QSharedPointer<ICommand> command = plugin->declaredCommand("getToolInfo")->newCommandInstance({});
    auto* cmd = dynamic_cast<DAbstractCommand*>(command.data());
    QSignalSpy finished(cmd, &DAbstractCommand::sigCommandFinished);

    QVERIFY(command->commandExecute());
    QVERIFY2(!command->commandExecute(), "one order, one execution");
    QTRY_COMPARE_WITH_TIMEOUT(router.sent.size(), 2, 5000);
    router.deliver(HytorcHcpFrame::buildAckFrame());
    router.deliver(HytorcHcpFrame::buildAckFrame());
    router.deliver(HytorcHcpFrame::encodeFrame(0x00, 0x88, payload));
    QCOMPARE(router.sent, (QStringList{"driver/listenEventsData/2000/0", "driver/write/2000/1",
                                       "driver/write/2000/1", "driver/write/2000/1"}));
    QCOMPARE(router.writes.at(2), HytorcHcpFrame::buildFrame("GET ADMIN TOOL_INFO\r\n", true, false, true, 1));
    QCOMPARE(router.writes.at(3), HytorcHcpFrame::buildAckFrame());
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(0).toBool(), true);
    QCOMPARE(router.closed, QList<quint64>{1});
    QCOMPARE(cmd->commandResults().value("cmd_success"), QVariant(success));
    QCOMPARE(cmd->commandResults().value("deviceInformation"), information);
}

QTEST_GUILESS_MAIN(TestGetToolInfo)
#include "test_get_tool_info.moc"
