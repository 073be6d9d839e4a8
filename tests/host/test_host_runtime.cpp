// The host runtime: instruction routing, plug-in loading and command running.
#include "d_command_runner.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"
#include "d_test_command.h"
#include "d_test_plugin.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Plays "driver": opens every instruction as told, giving `repliesAtOnce` from inside the call.
class DRecordingTarget : public IInstructionTarget
{
public:
    EnOpening openInstruction(quint64 id, const QString&, const QVariantMap&, IInstructionReplySink* replySink,
                              QString* refusal) override
    {
        sink = replySink;
        for (const QVariantMap& reply : qAsConst(repliesAtOnce))
            sink->instructionReply(id, reply);
        *refusal = QStringLiteral("busy");
        return opening;
    }
    void closeInstruction(quint64 id) override { closed << id; }

    EnOpening opening = CeOpStream;
    QList<QVariantMap> repliesAtOnce;
    QList<quint64> closed;
    IInstructionReplySink* sink = nullptr;
};

QVariantMap numbered(int n) { return {{QStringLiteral("n"), n}}; }

} // namespace

class TestHostRuntime : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void repliesQueuedInOrderUntilClosedOrEnded();
    void refusalsAndOneShotTimeout();
    void deletedCommandIsNotCalledBack();
    void badLibraryDoesNotKeepOthersOut();
    void runnerReportsAndStops();

private:
    quint64 open(int timeout = 0);
    DRecordingTarget m_target;
    QScopedPointer<DInstructionRouter> m_router;
    QHash<quint64, QList<QVariantMap>> m_replies;
    QString m_error;
};

void TestHostRuntime::init()
{
    m_target = DRecordingTarget();
    m_router.reset(new DInstructionRouter);
    m_router->addTarget(QStringLiteral("driver"), &m_target);
    m_replies.clear();
}

quint64 TestHostRuntime::open(int timeout)
{
    return m_router->openInstruction(
        QStringLiteral("driver"), QStringLiteral("write"), {}, timeout,
        [this](quint64 id, const QVariantMap& reply) { m_replies[id] << reply; }, &m_error);
}

void TestHostRuntime::repliesQueuedInOrderUntilClosedOrEnded()
{
    m_target.repliesAtOnce = {numbered(1), numbered(2)};
    const quint64 first = open();
    m_target.repliesAtOnce.clear();
    const quint64 closed = open();
    const quint64 ended = open();
    m_target.sink->instructionReply(first, numbered(3));
    m_target.sink->instructionReply(closed, numbered(1));
    m_target.sink->instructionReply(ended, numbered(1));
    m_target.sink->instructionEnded(ended);
    m_target.sink->instructionReply(ended, numbered(2));
    QVERIFY(m_router->closeInstruction(closed));
    QVERIFY(!m_router->closeInstruction(closed));
    QVERIFY(m_replies.isEmpty()); // neither inside openInstruction nor inside instructionReply
    QTRY_COMPARE_WITH_TIMEOUT(m_replies.value(first).size(), 3, 10000);
    QCOMPARE(m_replies.value(first), (QList<QVariantMap>{numbered(1), numbered(2), numbered(3)}));
    QCOMPARE(m_replies.value(ended), QList<QVariantMap>{numbered(1)});
    QVERIFY(!m_replies.contains(closed));
    QCOMPARE(m_target.closed, QList<quint64>{closed});
    m_router->removeTarget(QStringLiteral("driver")); // closes what is still open
    QCOMPARE(m_target.closed.last(), first);
    QCOMPARE(m_router->openCount(), 0);
}

void TestHostRuntime::refusalsAndOneShotTimeout()
{
    QSignalSpy failed(m_router.data(), &DInstructionRouter::sigInstructionFailed);
    QCOMPARE(m_router->openInstruction(QStringLiteral("printer"), QStringLiteral("write"), {}, 0, {}, &m_error), 0u);
    QCOMPARE(m_error, QStringLiteral("no target \"printer\""));
    m_target.opening = IInstructionTarget::CeOpRefused;
    m_target.repliesAtOnce = {numbered(1)}; // what it says before refusing is dropped
    QCOMPARE(open(), 0u);
    m_target.repliesAtOnce.clear();
    QCOMPARE(m_error, QStringLiteral("busy"));

    m_target.opening = IInstructionTarget::CeOpOneShot;
    const quint64 silent = open(50);
    QTRY_COMPARE_WITH_TIMEOUT(m_replies.value(silent).size(), 1, 10000);
    const QString error = QStringLiteral("No reply from \"driver\" to \"write\" within 50 ms");
    QCOMPARE(m_replies.value(silent).first(),
             (QVariantMap{{QStringLiteral("cmd_success"), false},
                          {QStringLiteral("results"), QVariantMap{{QStringLiteral("doneOk"), false}}},
                          {QStringLiteral("error"), error}}));
    QCOMPARE(m_target.closed, QList<quint64>{silent});
    QCOMPARE(m_replies.keys(), QList<quint64>{silent});
    QCOMPARE(failed.size(), 3);
    QCOMPARE(failed.at(2).at(2).toString(), error);
    QCOMPARE(m_router->openCount(), 0);
}

void TestHostRuntime::deletedCommandIsNotCalledBack()
{
    DTestPlugin plugin;
    plugin.setInstructionRouter(m_router.data());
    plugin.initPluginCommands();
    QSharedPointer<ICommand> command = plugin.declaredCommand(QStringLiteral("listenDriver"))->newCommandInstance({});
    QVERIFY(command->commandExecute());
    const quint64 id = DTestCommand::s_lastExecuted->listenId();
    m_target.sink->instructionReply(id, numbered(1));
    QTRY_COMPARE_WITH_TIMEOUT(DTestCommand::s_repliesReceived, 1, 10000);
    m_target.sink->instructionReply(id, numbered(2));
    command.reset();
    QCOMPARE(m_target.closed, QList<quint64>{id});
    QTest::qWait(50);
    QCOMPARE(DTestCommand::s_repliesReceived, 1);
}

void TestHostRuntime::badLibraryDoesNotKeepOthersOut()
{
    QTemporaryDir dir;
    QVERIFY(QFile::copy(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins/libp_driver_serial.so",
                        dir.filePath("libp_driver_serial.so")));
    QFile fake(dir.filePath(QStringLiteral("libfake.so")));
    QVERIFY(fake.open(QIODevice::WriteOnly) && fake.write("not a library") > 0);
    fake.close();
    DPluginHost host(m_router.data());
    QVERIFY(!host.loadPlugins(dir.path(), &m_error));
    QVERIFY2(m_error.contains("libfake.so") && !m_error.contains("libp_driver"), qPrintable(m_error));
    QCOMPARE(host.rootPlugins().size(), 1);
    QPointer<DAbstractPlugin> instance = host.createInstance(host.rootPlugins().first(), QUuid::createUuid());
    QVERIFY(instance && instance->instructionRouter() == m_router.data());
}

void TestHostRuntime::runnerReportsAndStops()
{
    DTestPlugin plugin;
    auto* other = new DTestPlugin;
    plugin.initPluginCommands();
    other->initPluginCommands();
    DCommandRunner runner;
    QCOMPARE(runner.start(&plugin, QStringLiteral("refuse"), {}, &m_error), 0u);
    QCOMPARE(m_error, QStringLiteral("command \"refuse\" refused to execute"));

    QSignalSpy finished(&runner, &DCommandRunner::sigFinished);
    const QVariantMap value{{QStringLiteral("value"), 7}};
    const quint64 atOnce = runner.start(&plugin, QStringLiteral("finishAtOnce"), value, &m_error);
    QCOMPARE(finished.size(), 0); // it finished inside commandExecute: told on a later turn
    const QString follow = QStringLiteral("follow");
    const quint64 first = runner.start(&plugin, follow, {}, &m_error);
    const quint64 second = runner.start(&plugin, follow, {}, &m_error);
    const quint64 orphan = runner.start(other, follow, {}, &m_error);
    QCOMPARE(runner.stop(&plugin, QStringLiteral("stopOther")), 0);
    QCOMPARE(runner.stop(&plugin, QStringLiteral("stopFollow")), 2);
    delete other; // its command goes with it, unfinished
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 4, 10000);
    QCOMPARE(finished.at(0), (QVariantList{atOnce, QStringLiteral("finishAtOnce"), true, value}));
    QCOMPARE(finished.at(1), (QVariantList{first, follow, true, QVariantMap()}));
    QCOMPARE(finished.at(2), (QVariantList{second, follow, true, QVariantMap()}));
    QCOMPARE(finished.at(3), (QVariantList{orphan, follow, false, QVariantMap()}));
    QCOMPARE(runner.runningCount(), 0);
}

QTEST_GUILESS_MAIN(TestHostRuntime)
#include "test_host_runtime.moc"
