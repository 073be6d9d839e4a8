// Our stand-in for the host's closed framework: the parts whose behaviour plug-ins rely on.
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "i_instruction_router.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

// Records what a command sends; answers with ids from 1.
class RecordingRouter : public IInstructionRouter
{
public:
    quint64 openInstruction(const QString& target, const QString& instruction, const QVariantMap&, int timeout,
                            ReplyHandler onReply, QString*) override
    {
        opened << QStringLiteral("%1/%2/%3").arg(target, instruction).arg(timeout);
        handlers.insert(++lastId, onReply);
        return lastId;
    }
    bool closeInstruction(quint64 id) override { return handlers.remove(id) > 0; }

    quint64 lastId = 0;
    QStringList opened;
    QHash<quint64, ReplyHandler> handlers;
};

class TestPlugin : public DAbstractPlugin
{
public:
    TestPlugin() : DAbstractPlugin(QUuid::createUuid(), "test", CeTypeDevice, 1, QUuid(), nullptr, false) {}
    void initPluginCommands() override {}
    IPlugin* createInstance(const QUuid&) const override { return nullptr; }
    const char* pluginSubTypeName() const override { return ""; }
};

class TestCommand : public DAbstractCommand
{
public:
    TestCommand(QObject* parent) : DAbstractCommand("probe", "stopProbe", {{"given", 7}}, parent) {}
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap&) override { return shareCommand(new TestCommand(parent())); }
    bool onReply(quint64 id, QVariantMap reply)
    {
        replies << qMakePair(id, reply);
        return true;
    }
    QList<QPair<quint64, QVariantMap>> replies;
};

} // namespace

class TestHostFramework : public QObject
{
    Q_OBJECT

private slots:
    void commandLifecycle();
    void instructionsOfACommand();
    void sharedCommandEndsOnce();
};

void TestHostFramework::commandLifecycle()
{
    TestCommand command(nullptr);
    command.declareAParameter("p", "int", "a parameter", 3);
    command.declareAResult("cmd_success", "bool", "Success", false);
    QCOMPARE(command.commandResults(), (QVariantMap{{"cmd_success", false}}));
    QCOMPARE(command.getParameterValue("given"), QVariant(7));
    QCOMPARE(command.getParameterValue("p", 9), QVariant(9));
    QVERIFY(command.commandExecute());
    QVERIFY2(!command.commandExecute(), "a command runs once");

    QSignalSpy finished(&command, &DAbstractCommand::sigCommandFinished);
    bool ok = false;
    command.finishTheCommand(ok);
    bool again = true;
    command.commandFinish(again);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(0).toBool(), false);
}

void TestHostFramework::instructionsOfACommand()
{
    TestPlugin plugin;
    auto* command = new TestCommand(&plugin);
    const InstructionReplyDelegate onReply(command, &TestCommand::onReply);

    // No host to route it: a clear failure later, never a silent wait.
    QCOMPARE(command->addInstruction("driver", "listenEventsData", {}, 2000, onReply), quint64(0));
    QTRY_COMPARE(command->replies.size(), 1);
    QCOMPARE(command->replies.at(0).second.value("cmd_success"), QVariant(false));

    RecordingRouter router;
    plugin.setInstructionRouter(&router);
    const quint64 listen = command->addInstruction("driver", "listenEventsData", {}, 2000, onReply);
    const quint64 write = command->addInstruction("driver", "write", {}, 2000, InstructionReplyDelegate());
    QCOMPARE(router.opened, (QStringList{"driver/listenEventsData/2000", "driver/write/2000"}));
    router.handlers.value(listen)(listen, {{"frame", QByteArray("ab")}});
    QCOMPARE(command->replies.last().first, listen);
    QVERIFY2(!command->setReply(write, {}), "no callback was asked for the write");
    QVERIFY(command->stopTheInstruction(listen));
    QVERIFY(!command->setReply(listen, {}));

    // A command that goes away closes what it still listens to.
    const quint64 second = command->addInstruction("driver", "listenEventsData", {}, 2000, onReply);
    delete command;
    QVERIFY(!router.handlers.contains(second));
}

void TestHostFramework::sharedCommandEndsOnce()
{
    auto* plugin = new TestPlugin;
    QSharedPointer<ICommand> kept = (new TestCommand(plugin))->newCommandInstance({});
    QPointer<QObject> watch(dynamic_cast<QObject*>(kept.data()));
    QCOMPARE(watch->parent(), plugin);
    delete plugin; // the Qt parent ends it first...
    QVERIFY(watch.isNull());
    kept.reset(); // ...and the shared pointer must not end it again

    TestPlugin owner;
    QSharedPointer<ICommand> released = (new TestCommand(&owner))->newCommandInstance({});
    watch = dynamic_cast<QObject*>(released.data());
    released.reset();
    QVERIFY(watch.isNull());
}

QTEST_GUILESS_MAIN(TestHostFramework)
#include "test_host_framework.moc"
