// Our stand-in for the host's closed framework: the parts whose behaviour plug-ins rely on.
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "i_instruction_router.h"
#include "utilities.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

// Records what a command sends; answers with ids from 1 or refuses everything.
class RecordingRouter : public IInstructionRouter
{
public:
    quint64 openInstruction(const QString& target, const QString& instruction, const QVariantMap&, int timeout,
                            ReplyHandler onReply, QString* refusal) override
    {
        if (refuseAll) {
            *refusal = QStringLiteral("no target \"%1\"").arg(target);
            return 0;
        }
        opened << QStringLiteral("%1/%2/%3").arg(target, instruction).arg(timeout);
        handlers.insert(++lastId, onReply);
        return lastId;
    }
    bool closeInstruction(quint64 id) override
    {
        closed << id;
        return handlers.remove(id) > 0;
    }

    bool refuseAll = false;
    quint64 lastId = 0;
    QStringList opened;
    QList<quint64> closed;
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
    // Taken by value, as the plug-in's reply slots do.
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
    void versionPacking_data();
    void versionPacking();
    void mapToText();
    void delegates();
    void commandLifecycle();
    void instructionsOfACommand();
    void sharedCommandEndsOnce();
};

void TestHostFramework::versionPacking_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<quint64>("packed");
    QTest::addColumn<bool>("ok");
    QTest::newRow("1.0") << "1.0" << (quint64(1) << 48) << true;
    QTest::newRow("four parts") << "1.2.3.4" << quint64(0x0001000200030004) << true;
    QTest::newRow("single") << "7" << (quint64(7) << 48) << true;
    QTest::newRow("max part") << "65535.1" << quint64(0xFFFF000100000000) << true;
    QTest::newRow("part too big") << "65536" << quint64(0) << false;
    QTest::newRow("five parts") << "1.2.3.4.5" << quint64(0) << false;
    QTest::newRow("empty part") << "1..2" << quint64(0) << false;
    QTest::newRow("letters") << "1.a" << quint64(0) << false;
    QTest::newRow("empty") << "" << quint64(0) << false;
}

void TestHostFramework::versionPacking()
{
    QFETCH(QString, text);
    QFETCH(quint64, packed);
    QFETCH(bool, ok);
    bool good = !ok;
    QCOMPARE(versionFromString(text, &good, '.'), packed);
    QCOMPARE(good, ok);
    QCOMPARE(versionFromString(text, nullptr, '.'), packed);
}

void TestHostFramework::mapToText()
{
    const QVariantMap map{{"b", QVariantList{1, "x"}}, {"a", QVariantMap{{"k", true}}}, {"c", QByteArray("\x00\xff", 2)}};
    QCOMPARE(convVariantMapToString(map), QStringLiteral("{a: {k: true}, b: [1, x], c: 00 ff}"));
    QVERIFY(QDateTime::fromString(getDate(), "yyyy-MM-dd hh:mm:ss.zzz").isValid());
}

void TestHostFramework::delegates()
{
    TestCommand command(nullptr);
    InstructionReplyDelegate empty;
    QVERIFY(empty.empty());
    QVERIFY(!empty);
    InstructionReplyDelegate bound(&command, &TestCommand::onReply);
    QVERIFY(!bound.empty());
    QVERIFY(bound(5, {{"k", 1}}));
    QCOMPARE(command.replies.size(), 1);
    QCOMPARE(command.replies.at(0).first, quint64(5));
    bound.clear();
    QVERIFY(bound.empty());
}

void TestHostFramework::commandLifecycle()
{
    TestCommand command(nullptr);
    command.declareAParameter("p", "int", "a parameter", 3);
    command.declareAResult("cmd_success", "bool", "Success", false);
    QCOMPARE(command.commandResults(), (QVariantMap{{"cmd_success", false}}));
    QCOMPARE(command.getParameterValue("given"), QVariant(7));
    QCOMPARE(command.getParameterValue("p", 9), QVariant(9));
    QVERIFY(!command.getParameterValue("missing").isValid());
    QVERIFY(command.isRecurrent());
    QCOMPARE(command.stopCommandName(), QStringLiteral("stopProbe"));

    QVERIFY(command.commandExecute());
    QVERIFY2(!command.commandExecute(), "a command runs once");

    QSignalSpy updates(&command, &DAbstractCommand::sigResultsUpdated);
    command.commandUpdateResults({{"cmd_success", true}, {"extra", 1}});
    QCOMPARE(updates.count(), 1);
    QCOMPARE(command.commandResults().value("cmd_success"), QVariant(true));

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
    QCOMPARE(command->replies.at(0).first, quint64(0));
    QCOMPARE(command->replies.at(0).second.value("cmd_success"), QVariant(false));
    QVERIFY(!command->replies.at(0).second.value("error").toString().isEmpty());

    RecordingRouter router;
    plugin.setInstructionRouter(&router);
    router.refuseAll = true;
    QCOMPARE(command->addInstruction("driver", "write", {}, 2000, InstructionReplyDelegate()), quint64(0));
    router.refuseAll = false;

    const quint64 listen = command->addInstruction("driver", "listenEventsData", {}, 2000, onReply);
    const quint64 write = command->addInstruction("driver", "write", {}, 2000, InstructionReplyDelegate());
    QCOMPARE(listen, quint64(1));
    QCOMPARE(write, quint64(2));
    QCOMPARE(router.opened, (QStringList{"driver/listenEventsData/2000", "driver/write/2000"}));

    router.handlers.value(listen)(listen, {{"frame", QByteArray("ab")}});
    QCOMPARE(command->replies.size(), 2);
    QCOMPARE(command->replies.last().first, listen);
    QVERIFY2(!command->setReply(write, {}), "no callback was asked for the write");

    QVERIFY(command->stopTheInstruction(listen));
    QVERIFY(!command->setReply(listen, {}));

    // A command that goes away closes what it still listens to.
    const quint64 second = command->addInstruction("driver", "listenEventsData", {}, 2000, onReply);
    delete command;
    QVERIFY(router.closed.contains(second));
    QVERIFY(!router.handlers.contains(second));
}

void TestHostFramework::sharedCommandEndsOnce()
{
    auto* plugin = new TestPlugin;
    auto* prototype = new TestCommand(plugin);
    QSharedPointer<ICommand> kept = prototype->newCommandInstance({});
    QPointer<QObject> watch(dynamic_cast<QObject*>(kept.data()));
    QCOMPARE(watch->parent(), plugin);
    delete plugin;  // the Qt parent ends it first...
    QVERIFY(watch.isNull());
    kept.reset();   // ...and the shared pointer must not end it again

    TestPlugin owner;
    QSharedPointer<ICommand> released = (new TestCommand(&owner))->newCommandInstance({});
    watch = dynamic_cast<QObject*>(released.data());
    released.reset();
    QVERIFY(watch.isNull());
}

QTEST_GUILESS_MAIN(TestHostFramework)
#include "test_host_framework.moc"
