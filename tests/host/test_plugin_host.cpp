#include "d_command_runner.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"
#include "d_test_command.h"
#include "d_test_plugin.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestPluginHost : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void loadingErrorsAreReported();
    void instancesPlayTargetsUntilTheHostGoes();
    void runnerReportsResultsAfterTheRunIdThenReleases();
    void runnerStopsByStopNameAndEndsOrphans();

private:
    QTemporaryDir m_dir;  // holds a copy of the driver plug-in
    QString m_error;
};

void TestPluginHost::init()
{
    const QString buildDir = qEnvironmentVariable("HYTORC_BUILD_DIR", QStringLiteral(HYTORC_DEFAULT_BUILD_DIR));
    const QString copy = m_dir.filePath(QStringLiteral("libp_driver_serial.so"));
    QVERIFY(QFile::exists(copy) || QFile::copy(buildDir + QStringLiteral("/plugins/libp_driver_serial.so"), copy));
}

void TestPluginHost::loadingErrorsAreReported()
{
    DInstructionRouter router;
    DPluginHost host(&router);
    QVERIFY(!host.loadPlugins(QStringLiteral("/nonexistent/plugins"), &m_error));
    QVERIFY2(m_error.contains(QStringLiteral("/nonexistent/plugins")), qPrintable(m_error));
    QTemporaryDir empty;
    QVERIFY(!host.loadPlugins(empty.path(), &m_error));
    QVERIFY2(m_error.contains(empty.path()), qPrintable(m_error));

    QFile fake(m_dir.filePath(QStringLiteral("libfake.so")));
    QVERIFY(fake.open(QIODevice::WriteOnly) && fake.write("not a library") > 0);
    fake.close();
    QVERIFY(!host.loadPlugins(m_dir.path(), &m_error));
    fake.remove();
    QVERIFY2(m_error.contains(QStringLiteral("libfake.so")) && !m_error.contains(QStringLiteral("libp_driver")),
             qPrintable(m_error));
    // One bad library does not keep the good one out.
    QCOMPARE(host.rootPlugins().size(), 1);
    QVERIFY(host.rootPlugin(QStringLiteral("Plugin Driver Serial")));
}

void TestPluginHost::instancesPlayTargetsUntilTheHostGoes()
{
    DInstructionRouter router;
    QPointer<DAbstractPlugin> instance;
    QVariantMap reply;
    {
        DPluginHost host(&router);
        QVERIFY2(host.loadPlugins(m_dir.path(), &m_error), qPrintable(m_error));
        instance = host.createInstance(host.rootPlugin(QStringLiteral("Plugin Driver Serial")), QUuid::createUuid());
        QVERIFY(instance);
        QCOMPARE(instance->instructionRouter(), &router);
        DTestPlugin notATarget;
        QVERIFY(!host.playTarget(QStringLiteral("driver"), &notATarget));
        QVERIFY(host.playTarget(QStringLiteral("driver"), instance));
        QVERIFY(router.openInstruction(QStringLiteral("driver"), QStringLiteral("closeConnection"), {}, 2000,
                                       [&reply](quint64, const QVariantMap& r) { reply = r; }, &m_error));
        QTRY_COMPARE_WITH_TIMEOUT(reply, (QVariantMap{{QStringLiteral("cmd_success"), true}}), 10000);
    }
    QVERIFY(instance.isNull());
    QVERIFY(!router.openInstruction(QStringLiteral("driver"), QStringLiteral("closeConnection"), {}, 0, {}, &m_error));
}

void TestPluginHost::runnerReportsResultsAfterTheRunIdThenReleases()
{
    DTestPlugin plugin;
    plugin.initPluginCommands();
    DCommandRunner runner;
    QCOMPARE(runner.start(&plugin, QStringLiteral("nope"), {}, &m_error), 0u);
    QCOMPARE(m_error, QStringLiteral("unknown command \"nope\""));
    QCOMPARE(runner.start(&plugin, QStringLiteral("refuse"), {}, &m_error), 0u);
    QCOMPARE(m_error, QStringLiteral("command \"refuse\" refused to execute"));

    QSignalSpy updated(&runner, &DCommandRunner::sigResultsUpdated);
    QSignalSpy finished(&runner, &DCommandRunner::sigFinished);
    const QVariantMap value{{QStringLiteral("value"), 7}};
    const quint64 run = runner.start(&plugin, QStringLiteral("finishAtOnce"), value, &m_error);
    QVERIFY(run > 0);
    QCOMPARE(finished.size(), 0);  // it finished inside commandExecute: told on a later turn
    QPointer<DTestCommand> command = DTestCommand::s_lastExecuted;
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
    QCOMPARE(updated.at(0), (QVariantList{run, QStringLiteral("finishAtOnce"), value}));
    QCOMPARE(finished.at(0), (QVariantList{run, QStringLiteral("finishAtOnce"), true, value}));
    QVERIFY(command.isNull());
    QCOMPARE(runner.runningCount(), 0);
}

void TestPluginHost::runnerStopsByStopNameAndEndsOrphans()
{
    DTestPlugin plugin;
    auto* other = new DTestPlugin;
    plugin.initPluginCommands();
    other->initPluginCommands();
    DCommandRunner runner;
    QSignalSpy finished(&runner, &DCommandRunner::sigFinished);
    const QString follow = QStringLiteral("follow");
    const quint64 first = runner.start(&plugin, follow, {}, &m_error);
    const quint64 second = runner.start(&plugin, follow, {}, &m_error);
    const quint64 orphan = runner.start(other, follow, {}, &m_error);
    QCOMPARE(runner.runningCount(), 3);
    QCOMPARE(runner.stop(&plugin, QStringLiteral("stopOther")), 0);
    QCOMPARE(runner.stop(&plugin, QStringLiteral("stopFollow")), 2);
    QCOMPARE(runner.stop(&plugin, QStringLiteral("stopFollow")), 0);
    delete other;  // its command goes with it, unfinished
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 3, 10000);
    QCOMPARE(finished.at(0), (QVariantList{first, follow, true, QVariantMap()}));
    QCOMPARE(finished.at(1), (QVariantList{second, follow, true, QVariantMap()}));
    QCOMPARE(finished.at(2), (QVariantList{orphan, follow, false, QVariantMap()}));
    QCOMPARE(runner.runningCount(), 0);
}

QTEST_GUILESS_MAIN(TestPluginHost)
#include "test_plugin_host.moc"
