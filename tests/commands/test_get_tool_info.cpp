// getToolInfo through the real plug-in library, with a recording stand-in for the host's
// instruction routing: every byte the command asks the driver to write is checked.
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "hytorc_hcp_frame.h"
#include "i_instruction_router.h"

#include <QPluginLoader>
#include <QSignalSpy>
#include <QtTest>

namespace {

struct Sent {
    QString instruction;
    QVariantMap parameters;
    int timeout;
};

class RecordingRouter : public IInstructionRouter
{
public:
    quint64 openInstruction(const QString& target, const QString& instruction, const QVariantMap& parameters,
                            int timeout, ReplyHandler onReply, QString*) override
    {
        if (target != QLatin1String("driver"))
            return 0;
        sent.append({instruction, parameters, timeout});
        handlers.insert(++lastId, onReply);
        return lastId;
    }
    bool closeInstruction(quint64 id) override
    {
        closed << id;
        return handlers.remove(id) > 0;
    }
    QList<QByteArray> writes() const
    {
        QList<QByteArray> frames;
        for (const Sent& s : sent) {
            if (s.instruction == QLatin1String("write"))
                frames << s.parameters.value("frame").toByteArray();
        }
        return frames;
    }
    // What the driver would deliver to the listening instruction (the first one opened).
    void deliver(const QByteArray& bytes) { handlers.value(1)(1, {{"frame", bytes}, {"number", ++chunk}}); }

    QList<Sent> sent;
    QList<quint64> closed;
    QHash<quint64, ReplyHandler> handlers;
    quint64 lastId = 0;
    int chunk = 0;
};

QByteArray reply(const QByteArray& payload, bool last)
{
    return HytorcHcpFrame::encodeFrame(0x00, HytorcHcpFrame::c_dataFlag | (last ? HytorcHcpFrame::c_lastFlag : 0),
                                       payload);
}

const QByteArray c_infoLines = "RESPONSE\r\nGET ADMIN TOOL_INFO\r\nLION-2\r\nHYT24A0137\r\n2.4.1\r\n1.9.0\r\n1.2.3\r\n"
                               "4.04\r\n1873\r\n2025-09-14\r\nPCB-C3\r\nextra\r\nERRORCODE,0\r\nPASSED\r\n";

} // namespace

class TestGetToolInfo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void wholeTransaction();
    void shortAndEmptyReplies_data();
    void shortAndEmptyReplies();
    void toolErrorKeepsOldInformation();

private:
    // Runs a fresh getToolInfo up to the moment its request frame was written.
    void startUpToRequest();

    QPluginLoader m_loader;
    QScopedPointer<IPlugin> m_instance;
    DAbstractPlugin* m_plugin = nullptr;
    RecordingRouter* m_router = nullptr;
    QSharedPointer<ICommand> m_command;
    DAbstractCommand* m_cmd = nullptr;
};

void TestGetToolInfo::initTestCase()
{
    m_loader.setFileName(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins/libp_device_hytorc.so");
    QVERIFY2(m_loader.load(), qPrintable(m_loader.errorString()));
}

void TestGetToolInfo::init()
{
    m_instance.reset(qobject_cast<IPlugin*>(m_loader.instance())->createInstance(QUuid::createUuid()));
    m_plugin = dynamic_cast<DAbstractPlugin*>(m_instance.data());
    m_router = new RecordingRouter;
    m_plugin->setInstructionRouter(m_router);
    m_plugin->initPluginCommands();
    m_command = m_plugin->declaredCommand("getToolInfo")->newCommandInstance({});
    m_cmd = dynamic_cast<DAbstractCommand*>(m_command.data());
}

void TestGetToolInfo::cleanup()
{
    m_command.reset();
    m_instance.reset();
    delete m_router;
}

void TestGetToolInfo::startUpToRequest()
{
    QVERIFY(m_command->commandExecute());
    QCOMPARE(m_router->sent.size(), 1);
    QCOMPARE(m_router->sent.at(0).instruction, QStringLiteral("listenEventsData"));
    QVERIFY(m_router->sent.at(0).parameters.isEmpty());
    QCOMPARE(m_router->sent.at(0).timeout, 2000);
    QVERIFY(m_router->writes().isEmpty());

    QTRY_COMPARE_WITH_TIMEOUT(m_router->writes().size(), 1, 5000);
    QCOMPARE(m_router->writes().at(0), QByteArray::fromHex("0001800555494" "30D0AFE82"));
    m_router->deliver(HytorcHcpFrame::buildAckFrame());
    QCOMPARE(m_router->writes().size(), 2);
    QCOMPARE(m_router->writes().at(1), HytorcHcpFrame::buildFrame("GET ADMIN TOOL_INFO\r\n", true, false, true, 1));
    QCOMPARE(m_router->sent.last().timeout, 2000);
    m_router->deliver(HytorcHcpFrame::buildAckFrame());
}

void TestGetToolInfo::wholeTransaction()
{
    QSignalSpy finished(m_cmd, &DAbstractCommand::sigCommandFinished);
    startUpToRequest();
    QVERIFY2(!m_command->commandExecute(), "one order, one execution");

    // The reply in two frames, cut inside the second frame's header.
    const QByteArray first = reply(c_infoLines.left(39), false);
    const QByteArray second = reply(c_infoLines.mid(39), true);
    m_router->deliver(first + second.left(2));
    QCOMPARE(m_router->writes().size(), 3);
    QCOMPARE(m_router->writes().last(), HytorcHcpFrame::buildAckFrame());
    QCOMPARE(finished.count(), 0);
    m_router->deliver(second.mid(2));

    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(0).toBool(), true);
    QCOMPARE(m_router->writes().size(), 4);
    QCOMPARE(m_router->closed, QList<quint64>{1});
    const QVariantMap info = m_cmd->commandResults().value("deviceInformation").toMap();
    QCOMPARE(info, (QVariantMap{{"model", "LION-2"}, {"serial", "HYT24A0137"}, {"uic_fw", "2.4.1"},
                                {"mdc_fw", "1.9.0"}, {"bsm_fw", "1.2.3"}, {"ublox_fw", "4.04"},
                                {"cycle_count", "1873"}, {"cal_date", "2025-09-14"}, {"pcb_version", "PCB-C3"}}));
    QCOMPARE(m_cmd->commandResults().value("cmd_success"), QVariant(true));

    // Nothing is written once the command has ended.
    QTest::qWait(300);
    QCOMPARE(m_router->writes().size(), 4);
}

void TestGetToolInfo::shortAndEmptyReplies_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("three lines") << QByteArray("HCD\r\nM\r\nS\r\nF\r\nPASSED\r\n")
                                 << QStringList{"model", "serial", "uic_fw"};
    QTest::newRow("empty") << QByteArray("RESPONSE\r\nERRORCODE,0\r\nPASSED\r\n") << QStringList();
}

void TestGetToolInfo::shortAndEmptyReplies()
{
    QFETCH(QByteArray, payload);
    QFETCH(QStringList, keys);
    startUpToRequest();
    m_router->deliver(reply(payload, true));
    QCOMPARE(m_cmd->commandResults().value("cmd_success"), QVariant(true));
    const QVariant info = m_cmd->commandResults().value("deviceInformation");
    QCOMPARE(info.userType(), int(QMetaType::QVariantMap));
    QCOMPARE(info.toMap().keys(), keys);
}

void TestGetToolInfo::toolErrorKeepsOldInformation()
{
    QSignalSpy finished(m_cmd, &DAbstractCommand::sigCommandFinished);
    startUpToRequest();
    m_router->deliver(reply("RESPONSE\r\nERRORCODE,4\r\n", true));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(0).toBool(), true);
    QCOMPARE(m_cmd->commandResults().value("cmd_success"), QVariant(false));
    QVERIFY(!m_cmd->commandResults().value("deviceInformation").isValid());
    QCOMPARE(m_router->closed, QList<quint64>{1});
}

QTEST_GUILESS_MAIN(TestGetToolInfo)
#include "test_get_tool_info.moc"
