// The command-line host as a user runs it, a real process over the whole chain (runtime,
// plug-ins, serial driver, pseudo-terminal, simulator): one test per road, its output and
// its exit status.
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run hytorc(const QStringList& arguments)
{
    QProcess process;
    process.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorc", arguments);
    process.closeWriteChannel();
    Run run;
    if (!process.waitForFinished(90000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void mainJobTracedAndListed();
    void usageAndLoadingErrors_data();
    void usageAndLoadingErrors();
    void failingRoads_data();
    void failingRoads();
    void interruptedSequence();
};

void TestCli::mainJobTracedAndListed()
{
    const Run run = hytorc({"--trace", "getToolInfo"});
    QVERIFY2(run.exitCode == 0, run.err.constData());
    const QJsonObject result = QJsonDocument::fromJson(run.out).object();
    QCOMPARE(result.value("command").toString(), QStringLiteral("getToolInfo"));
    QCOMPARE(result.value("success").toBool(), true);
    QCOMPARE(result.value("results").toObject().value("deviceInformation").toObject().size(), 9);
    QVERIFY2(run.err.contains("host>tool 00 01 80 05 55 49 43 0d 0a fe 82 | data,link seq=0 len=5 \"UIC\\r\\n\""),
             run.err.constData());
    QVERIFY(run.err.contains("tool>host 00 01 48 00 ff b7 | ACK,last,link seq=0 len=0"));
    QVERIFY(run.err.contains("data,last,cmd seq=1 len=21 \"GET ADMIN TOOL_INFO\\r\\n\""));

    // Two orders in one process on a faulty link (checksums are not checked on receipt): one
    // JSON object per line with --json.
    const Run twice = hytorc({"--json", "--sim-arg=--ignore-headers=1", "--sim-arg=--split-writes=100",
                              "--sim-arg=--noise=100", "--sim-arg=--bad-checksums=100", "--sim-arg=--reply-frames=3",
                              "getToolInfo", "getToolInfo"});
    QCOMPARE(twice.exitCode, 0);
    const QList<QByteArray> lines = twice.out.trimmed().split('\n');
    QCOMPARE(lines.size(), 2);
    for (const QByteArray& line : lines)
        QCOMPARE(QJsonDocument::fromJson(line).object().value("success").toBool(), true);

    const Run list = hytorc({"--json", "list"});
    QCOMPARE(list.exitCode, 0);
    const QJsonObject first = QJsonDocument::fromJson(list.out.trimmed().split('\n').last()).object();
    QCOMPARE(first.value("name").toString(), QStringLiteral("getToolInfo"));
    QCOMPARE(first.value("description").toString(), QStringLiteral("Get tool identification info (via HytorcHcpComm)"));
}

void TestCli::usageAndLoadingErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("no command") << QStringList() << QByteArray("no command given");
    QTest::newRow("unknown command") << QStringList{"getNothing"} << QByteArray("unknown command \"getNothing\"");
    QTest::newRow("parameter first") << QStringList{"lock=1", "getToolInfo"} << QByteArray("comes before any command");
    QTest::newRow("bad option value") << QStringList{"--timeout", "soon", "getToolInfo"} << QByteArray("--timeout");
    QTest::newRow("no plug-ins") << QStringList{"--plugins", "/nonexistent", "getToolInfo"} << QByteArray("/nonexistent");
}

void TestCli::usageAndLoadingErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, reason);
    const Run run = hytorc(arguments);
    QCOMPARE(run.exitCode, 2);
    // One line of reason; a debug build's plug-in also traces its instances there.
    QByteArrayList lines = run.err.trimmed().split('\n');
#ifndef QT_NO_DEBUG
    lines.erase(std::remove_if(lines.begin(), lines.end(), [](const QByteArray& l) { return !l.startsWith("hytorc"); }),
                lines.end());
#endif
    QVERIFY2(lines.size() == 1 && lines.first().startsWith("hytorc: ") && lines.first().contains(reason),
             run.err.constData());
    QVERIFY(run.out.isEmpty());
}

void TestCli::failingRoads_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("missing device") << QStringList{"--device", "/nonexistent/rfcomm0", "getToolInfo"}
                                    << QByteArray("cannot open /nonexistent/rfcomm0");
    // A reply that never ends is cut at the engine's bound, not left to grow the host.
    QTest::newRow("reply without end") << QStringList{"--sim-arg=--endless-reply", "--sim-arg=--baud=0", "getToolInfo"}
                                       << QByteArray("getToolInfo failed: Raw buffer overflow");
    // Said at once, not after the plug-in's retries.
    QTest::newRow("link dropped mid-reply")
        << QStringList{"--sim-arg=--drop-after=3", "--sim-arg=--reply-frames=3", "--reconnect", "0", "getToolInfo"}
        << QByteArray("(line hung up)");
    QTest::newRow("stuck command") << QStringList{"--timeout", "2", "--sim-arg=--silent", "getToolInfo"}
                                   << QByteArray("getToolInfo did not finish within 2 s; stopped");
}

void TestCli::failingRoads()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, reason);
    const Run run = hytorc(arguments);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(reason), run.err.constData());
    QVERIFY(!QJsonDocument::fromJson(run.out).object().value("success").toBool());
}

void TestCli::interruptedSequence()
{
    // SIGTERM (as Ctrl-C) stops the running command the host's way, and the rest of the sequence.
    QProcess interrupted;
    interrupted.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorc",
                      {"--sim-arg=--silent", "getToolInfo", "getToolInfo"});
    QVERIFY(interrupted.waitForStarted());
    QTest::qWait(1500);
    interrupted.terminate();
    QVERIFY2(interrupted.waitForFinished(10000), "the host must not ignore the signal");
    QCOMPARE(interrupted.exitStatus(), QProcess::NormalExit);
    QCOMPARE(interrupted.exitCode(), 1);
    QVERIFY(interrupted.readAllStandardError().contains("interrupted: 1 command(s) not run"));
    const QJsonObject printed = QJsonDocument::fromJson(interrupted.readAllStandardOutput()).object();
    QCOMPARE(printed.value("command").toString(), QStringLiteral("getToolInfo"));
    QCOMPARE(printed.value("success").toBool(true), false);
}

QTEST_GUILESS_MAIN(TestCli)
#include "test_cli.moc"
