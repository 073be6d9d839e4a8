// The host runtime where the end-to-end roads do not reach: refusals, a silent one-shot,
// a command gone while its instruction still talks. (A library that is not a plug-in is
// skipped on the command-line road, in test_field_faults.)
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"

#include <QSignalSpy>
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

} // namespace

class TestHostRuntime : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_target = DRecordingTarget();
        m_router.reset(new DInstructionRouter);
        m_router->addTarget("driver", &m_target);
    }

    void refusalsAndSilentOneShot()
    {
        QHash<quint64, QList<QVariantMap>> replies;
        const auto open = [&](const QString& target) {
            return m_router->openInstruction(target, "write", {}, 50,
                                             [&replies](quint64 id, const QVariantMap& r) { replies[id] << r; }, &m_error);
        };
        QSignalSpy failed(m_router.data(), &DInstructionRouter::sigInstructionFailed);
        QCOMPARE(open("printer"), 0u);
        QCOMPARE(m_error, QStringLiteral("no target \"printer\""));
        m_target.opening = IInstructionTarget::CeOpRefused;
        m_target.repliesAtOnce = {{{"said", "before refusing"}}}; // dropped
        QCOMPARE(open("driver"), 0u);
        QCOMPARE(m_error, QStringLiteral("busy"));

        m_target.opening = IInstructionTarget::CeOpOneShot;
        m_target.repliesAtOnce.clear();
        const quint64 silent = open("driver");
        QTRY_COMPARE_WITH_TIMEOUT(replies.value(silent).size(), 1, 10000);
        const QString error = QStringLiteral("No reply from \"driver\" to \"write\" within 50 ms");
        QCOMPARE(replies.value(silent).first(),
                 (QVariantMap{{"cmd_success", false}, {"results", QVariantMap{{"doneOk", false}}}, {"error", error}}));
        QCOMPARE(replies.keys(), QList<quint64>{silent});
        QCOMPARE(m_target.closed, QList<quint64>{silent});
        QCOMPARE(failed.size(), 3);
        QCOMPARE(failed.at(2).at(2).toString(), error);
        QCOMPARE(m_router->openCount(), 0);
    }

    void goneCommandIsNotCalledBack()
    {
        QScopedPointer<DPluginHost> host(new DPluginHost(m_router.data()));
        QVERIFY2(host->loadPlugins(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins", &m_error), qPrintable(m_error));
        DAbstractPlugin* device = host->createInstance(host->rootPlugin("Plugin Device Hytorc"), QUuid::createUuid());
        QSharedPointer<ICommand> command = device->declaredCommand("getToolInfo")->newCommandInstance({});
        QSharedPointer<ICommand> kept = device->declaredCommand("getToolInfo")->newCommandInstance({});
        QVERIFY(command->commandExecute());
        QCOMPARE(m_router->openCount(), 1);
        m_target.sink->instructionReply(1, {{"frame", QByteArray("x")}, {"number", 1}});
        command.reset(); // a reply still queued for it must not reach it
        QCOMPARE(m_target.closed, QList<quint64>{1});
        QTest::qWait(300); // its engine's header delay too
        QCOMPARE(m_router->openCount(), 0);
        // A command still held when its plug-in goes: the plug-in ends it, the pointer must not again.
        QPointer<QObject> watch(dynamic_cast<QObject*>(kept.data()));
        host.reset();
        QVERIFY(watch.isNull());
        kept.reset();
    }

private:
    DRecordingTarget m_target;
    QScopedPointer<DInstructionRouter> m_router;
    QString m_error;
};

QTEST_GUILESS_MAIN(TestHostRuntime)
#include "test_host_runtime.moc"
