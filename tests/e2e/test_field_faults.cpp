// The first faults a technician meets, under the real hytorc: a link lost (said at once,
// picked up again when the port returns, the rest reported as not run when it does not;
// the simulator drops and remakes its port) and what is typed wrong.
#include "d_simulated_tool.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <algorithm>

namespace {

// hytorc as a child process; every line it writes is kept with the time it arrived.
class DTimedHytorc
{
public:
    struct Line {
        qint64 ms;
        QByteArray text;
    };

    explicit DTimedHytorc(const QStringList& arguments)
    {
        QObject::connect(&process, &QProcess::readyReadStandardOutput, [this] { take(QProcess::StandardOutput, &out); });
        QObject::connect(&process, &QProcess::readyReadStandardError, [this] { take(QProcess::StandardError, &err); });
        clock.start();
        process.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorc", arguments);
    }
    ~DTimedHytorc()
    {
        process.kill();
        process.waitForFinished();
    }
    // When the first line holding `text` arrived; -1 if none (yet).
    static qint64 timeOf(const QList<Line>& lines, const QByteArray& text)
    {
        for (const Line& line : lines) {
            if (line.text.contains(text))
                return line.ms;
        }
        return -1;
    }
    int count(const QByteArray& text) const
    {
        return int(std::count_if(err.cbegin(), err.cend(), [&](const Line& l) { return l.text.contains(text); }));
    }
    QList<bool> successes() const
    {
        QList<bool> all;
        for (const Line& line : out) {
            const QJsonObject object = QJsonDocument::fromJson(line.text).object();
            if (object.contains("success"))
                all << object.value("success").toBool();
        }
        return all;
    }
    QByteArray errText() const
    {
        QByteArray text;
        for (const Line& line : err)
            text += line.text + '\n';
        return text;
    }

    QProcess process;
    QElapsedTimer clock;
    QList<Line> out;
    QList<Line> err;

private:
    void take(QProcess::ProcessChannel channel, QList<Line>* lines)
    {
        process.setReadChannel(channel);
        while (process.canReadLine())
            lines->append({clock.elapsed(), process.readLine().trimmed()});
    }
};

} // namespace

class TestFieldFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void typedWrong_data();
    void typedWrong();
    void droppedInASequence_data();
    void droppedInASequence();
    void listenerResumesAfterADrop();

private:
    QTemporaryDir m_plugins;
};

// The real plug-ins beside a file that is no plug-in at all.
void TestFieldFaults::initTestCase()
{
    const QString built = qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins/";
    for (const char* name : {"libp_device_hytorc.so", "libp_driver_serial.so"})
        QVERIFY(QFile::link(built + name, m_plugins.filePath(name)));
    QFile junk(m_plugins.filePath("libnotes.so"));
    QVERIFY(junk.open(QIODevice::WriteOnly) && junk.write("not a library") > 0);
}

void TestFieldFaults::typedWrong_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("said");
    const auto row = [](const char* name, const QStringList& arguments, int exitCode, const char* said) {
        QTest::newRow(name) << arguments << exitCode << QByteArray(said);
    };
    row("unset device variable", {"--device", "", "getToolInfo"}, 2, "--device needs a path");
    row("sim-arg with a device", {"--device", "/dev/null", "--sim-arg=--silent", "getToolInfo"}, 2, "--sim-arg is for");
    row("bad sim-arg", {"--sim-arg=--bogus", "getToolInfo"}, 2, "Unknown option 'bogus'");
    row("for without a listener", {"--for", "1", "getToolInfo"}, 2, "--for only limits a recurrent command");
    row("timeout beyond a timer", {"--timeout", "1e300", "getToolInfo"}, 2, "--timeout takes a number of seconds");
    row("nameless parameter", {"getToolInfo", "=1"}, 2, "parameter \"=1\" has no name");
    row("undeclared parameter", {"getToolInfo", "lock=1"}, 0, "getToolInfo does not declare \"lock\" (declared: none)");
    row("junk in the plug-in folder", {"--plugins", "PLUGINS", "list"}, 0, "libnotes.so");
}

// One line per fault, with the exit status the README gives.
void TestFieldFaults::typedWrong()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, said);
    arguments.replaceInStrings("PLUGINS", m_plugins.path());
    DTimedHytorc hytorc(arguments);
    QTRY_VERIFY_WITH_TIMEOUT(hytorc.process.state() == QProcess::NotRunning, 60000);
    QCOMPARE(hytorc.process.exitCode(), exitCode);
    QVERIFY2(hytorc.count(said) == 1, hytorc.errText().constData());
    for (const DTimedHytorc::Line& line : hytorc.err)
        QVERIFY2(line.text.startsWith("hytorc: "), line.text.constData());
    if (exitCode == 2)
        QVERIFY(hytorc.err.size() == 1 && hytorc.out.isEmpty());
}

void TestFieldFaults::droppedInASequence_data()
{
    QTest::addColumn<QStringList>("simulator");
    QTest::addColumn<QList<bool>>("successes");
    QTest::addColumn<QByteArray>("ending");
    // The fifth frame the tool receives is the second command's request: the drop comes mid-command.
    QTest::newRow("port back") << QStringList{"--drop-after=5", "--reopen-after=300"} << QList<bool>{true, false, true}
                               << QByteArray("link back: ");
    QTest::newRow("port never back") << QStringList{"--drop-after=5"} << QList<bool>{true, false}
                                     << QByteArray("link not back within 1 s: 1 command(s) not run");
}

void TestFieldFaults::droppedInASequence()
{
    QFETCH(QStringList, simulator);
    QFETCH(QList<bool>, successes);
    QFETCH(QByteArray, ending);
    DSimulatedTool tool;
    QVERIFY(tool.start(simulator));
    DTimedHytorc hytorc({"--json", "--reconnect", "1", "--device", tool.linkPath(), "getToolInfo", "getToolInfo",
                         "getToolInfo"});
    QTRY_VERIFY_WITH_TIMEOUT(hytorc.process.state() == QProcess::NotRunning, 60000);
    const qint64 ended = hytorc.clock.elapsed();
    QCOMPARE(hytorc.process.exitCode(), 1);
    QCOMPARE(hytorc.successes(), successes);

    // One line says it, once, naming the port and the cause; no retries repeat it.
    const QByteArray lost = "hytorc: link lost: " + tool.linkPath().toUtf8() + " (line hung up)";
    QVERIFY2(hytorc.count(lost) == 1 && hytorc.count("link lost") == 1, hytorc.errText().constData());
    QVERIFY2(hytorc.count("Serial port not open") == 0 && hytorc.count(ending) == 1, hytorc.errText().constData());
    // Said within 1 s of the first result, the drop being a few frames later; the plug-in's
    // retries alone would take 18 s. Generous slack for a loaded machine.
    const qint64 firstResult = hytorc.out.first().ms;
    QVERIFY2(DTimedHytorc::timeOf(hytorc.err, "link lost") - firstResult < 1000 + 2000, hytorc.errText().constData());
    // Bounded by --reconnect 1 s, not by the plug-in's retries.
    QVERIFY2(ended - DTimedHytorc::timeOf(hytorc.err, "link lost") < 1000 + 4000, hytorc.errText().constData());
}

void TestFieldFaults::listenerResumesAfterADrop()
{
    DSimulatedTool tool;
    QVERIFY(tool.start({"--reopen-after=300"}));
    DTimedHytorc hytorc({"--json", "--device", tool.linkPath(), "listenEventsData"});
    const auto updates = [&] { return hytorc.out.size(); };
    // Events until the listener hears one: it takes its time to start on a loaded machine.
    for (int i = 0; i < 40 && updates() == 0; ++i) {
        tool.say("event");
        QTest::qWait(500);
    }
    QVERIFY(updates() > 0);
    tool.say("drop");
    QTRY_VERIFY_WITH_TIMEOUT(DTimedHytorc::timeOf(hytorc.err, "link back") >= 0, 10000);
    // The listener is open again once "link back" is said: every report sent from then on arrives.
    const int before = updates();
    for (int i = 0; i < 3; ++i)
        tool.say("event");
    QTRY_COMPARE_WITH_TIMEOUT(updates(), before + 3, 10000);
    hytorc.process.terminate();  // Ctrl-C: the host's stop
    QTRY_VERIFY_WITH_TIMEOUT(hytorc.process.state() == QProcess::NotRunning, 10000);
    QCOMPARE(hytorc.process.exitCode(), 0);
    QCOMPARE(hytorc.count("link lost"), 2);  // said once, counted once in the summary
    QVERIFY2(hytorc.count(QByteArray::number(before + 3) + " results") == 1
                 && hytorc.count("; link lost 1 time(s), ") == 1,
             hytorc.errText().constData());
    QList<int> jobs;  // the simulator numbers its events
    for (const DTimedHytorc::Line& line : hytorc.out.mid(before, 3))
        jobs << QJsonDocument::fromJson(line.text)["update"]["eventData"]["jobId"].toString().toInt();
    QVERIFY(jobs.first() > 0);
    QCOMPARE(jobs, (QList<int>{jobs.first(), jobs.first() + 1, jobs.first() + 2}));
}

QTEST_GUILESS_MAIN(TestFieldFaults)
#include "test_field_faults.moc"
