#include "d_instruction_router.h"
#include "d_test_command.h"
#include "d_test_plugin.h"

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

QVariantMap numbered(int n) { return {{QStringLiteral("n"), n}}; }

} // namespace

class TestInstructionRouter : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void repliesAreQueuedInOrder();
    void refusalsGiveZeroAReasonAndASignal();
    void oneShotEndsAfterItsReplyOrItsTimeout();
    void closedOrEndedInstructionsDeliverNoMore();
    void deletedCommandIsNotCalledBack();

private:
    quint64 open(int timeout = 0, const QString& target = QStringLiteral("driver"));
    // A one-shot answered at once: once its answer is in, every reply queued before it is too.
    void drainQueue();

    DRecordingTarget m_target;
    QScopedPointer<DInstructionRouter> m_router;
    QHash<quint64, QList<QVariantMap>> m_replies;
};

void TestInstructionRouter::init()
{
    m_target = DRecordingTarget();
    m_router.reset(new DInstructionRouter);
    m_router->addTarget(QStringLiteral("driver"), &m_target);
    m_replies.clear();
}

quint64 TestInstructionRouter::open(int timeout, const QString& target)
{
    QString refusal;
    return m_router->openInstruction(
        target, QStringLiteral("write"), {}, timeout,
        [this](quint64 id, const QVariantMap& reply) { m_replies[id] << reply; }, &refusal);
}

void TestInstructionRouter::drainQueue()
{
    const DRecordingTarget saved = m_target;
    m_target.opening = IInstructionTarget::CeOpOneShot;
    m_target.repliesAtOnce = {numbered(-1)};
    const quint64 sentinel = open();
    m_target = saved;
    QTRY_COMPARE_WITH_TIMEOUT(m_replies.value(sentinel).size(), 1, 10000);
    m_replies.remove(sentinel);
}

void TestInstructionRouter::repliesAreQueuedInOrder()
{
    m_target.repliesAtOnce = {numbered(1), numbered(2)};
    const quint64 first = open();
    QCOMPARE(first, 1u);
    QCOMPARE(open(), 2u);
    m_target.sink->instructionReply(first, numbered(3));
    QVERIFY(m_replies.isEmpty());  // neither inside openInstruction nor inside instructionReply
    QTRY_COMPARE_WITH_TIMEOUT(m_replies.value(first).size(), 3, 10000);
    QCOMPARE(m_replies.value(first), (QList<QVariantMap>{numbered(1), numbered(2), numbered(3)}));
}

void TestInstructionRouter::refusalsGiveZeroAReasonAndASignal()
{
    QSignalSpy failed(m_router.data(), &DInstructionRouter::sigInstructionFailed);
    QString refusal;
    QCOMPARE(m_router->openInstruction(QStringLiteral("printer"), QStringLiteral("write"), {}, 0, {}, &refusal), 0u);
    QCOMPARE(refusal, QStringLiteral("no target \"printer\""));
    m_target.opening = IInstructionTarget::CeOpRefused;
    m_target.repliesAtOnce = {numbered(1)};
    QCOMPARE(open(), 0u);
    QCOMPARE(failed.size(), 2);
    QCOMPARE(failed.at(0), (QVariantList{QStringLiteral("printer"), QStringLiteral("write"), refusal}));
    QCOMPARE(failed.at(1), (QVariantList{QStringLiteral("driver"), QStringLiteral("write"), QStringLiteral("busy")}));
    drainQueue();
    QVERIFY(m_replies.isEmpty());  // what it said before refusing is dropped
    QCOMPARE(m_router->openCount(), 0);
}

void TestInstructionRouter::oneShotEndsAfterItsReplyOrItsTimeout()
{
    QSignalSpy failed(m_router.data(), &DInstructionRouter::sigInstructionFailed);
    const quint64 stream = open(50);
    m_target.opening = IInstructionTarget::CeOpOneShot;
    m_target.repliesAtOnce = {{{QStringLiteral("cmd_success"), false}, {QStringLiteral("error"), QStringLiteral("x")}}};
    const quint64 answered = open(100000);
    m_target.sink->instructionReply(answered, numbered(2));  // a one-shot answers once
    m_target.repliesAtOnce.clear();
    const quint64 silent = open(50);
    QTRY_COMPARE_WITH_TIMEOUT(m_replies.value(silent).size(), 1, 10000);
    const QString error = QStringLiteral("No reply from \"driver\" to \"write\" within 50 ms");
    QCOMPARE(m_replies.value(silent).first(),
             (QVariantMap{{QStringLiteral("cmd_success"), false},
                          {QStringLiteral("results"), QVariantMap{{QStringLiteral("doneOk"), false}}},
                          {QStringLiteral("error"), error}}));
    QCOMPARE(m_replies.value(answered).size(), 1);
    QCOMPARE(m_target.closed, QList<quint64>{silent});
    QCOMPARE(failed.size(), 2);
    QCOMPARE(failed.at(0).at(2).toString(), QStringLiteral("x"));
    QCOMPARE(failed.at(1).at(2).toString(), error);
    // The stream's timer, had it one, would have fired first: it is still open.
    QCOMPARE(m_router->openCount(), 1);
    m_target.sink->instructionReply(stream, numbered(1));
    QTRY_COMPARE_WITH_TIMEOUT(m_replies.value(stream).size(), 1, 10000);
}

void TestInstructionRouter::closedOrEndedInstructionsDeliverNoMore()
{
    const quint64 closedOne = open();
    m_target.sink->instructionReply(closedOne, numbered(1));
    QVERIFY(m_router->closeInstruction(closedOne));
    QVERIFY(!m_router->closeInstruction(closedOne));
    QCOMPARE(m_target.closed, QList<quint64>{closedOne});

    const quint64 endedOne = open();
    m_target.sink->instructionReply(endedOne, numbered(1));
    m_target.sink->instructionEnded(endedOne);
    m_target.sink->instructionReply(endedOne, numbered(2));
    drainQueue();
    QVERIFY(!m_replies.contains(closedOne));
    QCOMPARE(m_replies.value(endedOne), QList<QVariantMap>{numbered(1)});
    QCOMPARE(m_router->openCount(), 0);

    const quint64 ofRemovedTarget = open();
    m_router->removeTarget(QStringLiteral("driver"));
    QCOMPARE(m_target.closed.last(), ofRemovedTarget);
    QCOMPARE(m_router->openCount(), 0);
}

void TestInstructionRouter::deletedCommandIsNotCalledBack()
{
    DTestPlugin plugin;
    plugin.setInstructionRouter(m_router.data());
    plugin.initPluginCommands();
    QSharedPointer<ICommand> command = plugin.declaredCommand(QStringLiteral("listenDriver"))->newCommandInstance({});
    QVERIFY(command->commandExecute());
    const quint64 id = DTestCommand::s_lastExecuted->listenId();
    m_target.sink->instructionReply(id, numbered(1));
    drainQueue();
    QCOMPARE(DTestCommand::s_repliesReceived, 1);

    m_target.sink->instructionReply(id, numbered(2));
    command.reset();
    QCOMPARE(m_target.closed, QList<quint64>{id});
    drainQueue();
    QCOMPARE(DTestCommand::s_repliesReceived, 1);
    QCOMPARE(m_router->openCount(), 0);
}

QTEST_GUILESS_MAIN(TestInstructionRouter)
#include "test_instruction_router.moc"
