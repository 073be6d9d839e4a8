// The command-line host as a user runs it, a real process over the whole chain (runtime,
// plug-ins, serial driver, pseudo-terminal, simulator): the main job, what is typed wrong
// or fails, one line each, a link lost (said at once, picked up again when the port returns,
// the rest reported as not run when it does not; the simulator drops and remakes its port)
// and Ctrl-C.
#include "d_hytorc_process.h"
#include "d_simulated_tool.h"

#include <QtTest>

#include <csignal>

class TestFieldFaults : public QObject
{
    Q_OBJECT

private slots:
    // The real plug-ins beside a file that is no plug-in at all.
    void initTestCase()
    {
        const QString built = qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins/";
        for (const char* name : {"libp_device_hytorc.so", "libp_driver_serial.so"})
            QVERIFY(QFile::link(built + name, m_plugins.filePath(name)));
        QFile junk(m_plugins.filePath("libnotes.so"));
        QVERIFY(junk.open(QIODevice::WriteOnly) && junk.write("not a library") > 0);
    }

    void mainJobTracedAndListed()
    {
        DTimedHytorc traced({"--trace", "getToolInfo"});
        QVERIFY(traced.waitForEnd(60000));
        QVERIFY2(traced.process.exitCode() == 0, traced.errText().constData());
        const QJsonObject result = QJsonDocument::fromJson(DTimedHytorc::text(traced.out)).object();
        QCOMPARE(result.value("command").toString(), QStringLiteral("getToolInfo"));
        QCOMPARE(result.value("success").toBool(), true);
        QCOMPARE(result.value("results").toObject().value("deviceInformation").toObject().size(), 9);
        const QByteArray err = traced.errText();
        QVERIFY2(err.contains("host>tool 00 01 80 05 55 49 43 0d 0a fe 82 | data,link seq=0 len=5 \"UIC\\r\\n\""),
                 err.constData());
        QVERIFY(err.contains("tool>host 00 01 48 00 ff b7 | ACK,last,link seq=0 len=0"));
        QVERIFY(err.contains("data,last,cmd seq=1 len=21 \"GET ADMIN TOOL_INFO\\r\\n\""));

        // Two orders in one process on a faulty link (checksums are not checked on receipt): one
        // JSON object per line with --json.
        DTimedHytorc twice({"--json", "--sim-arg=--ignore-headers=1", "--sim-arg=--split-writes=100",
                            "--sim-arg=--noise=100", "--sim-arg=--bad-checksums=100", "--sim-arg=--reply-frames=3",
                            "getToolInfo", "getToolInfo"});
        QVERIFY(twice.waitForEnd(60000));
        QCOMPARE(twice.process.exitCode(), 0);
        QCOMPARE(twice.successes(), (QList<bool>{true, true}));

        DTimedHytorc list({"--json", "list"});
        QVERIFY(list.waitForEnd(60000));
        QCOMPARE(list.process.exitCode(), 0);
        const QJsonObject first = list.json(list.out.size() - 1);
        QCOMPARE(first.value("name").toString(), QStringLiteral("getToolInfo"));
        QCOMPARE(first.value("description").toString(), QStringLiteral("Get tool identification info (via HytorcHcpComm)"));
    }

    void saidInOneLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("said");
        QTest::addColumn<int>("times");  // at most; once unless a row says otherwise
        const auto row = [](const char* name, const QStringList& arguments, int exitCode, const char* said, int times = 1) {
            QTest::newRow(name) << arguments << exitCode << QByteArray(said) << times;
        };
        row("no command", {}, 2, "no command given");
        row("unknown command", {"getNothing"}, 2, "unknown command \"getNothing\"");
        row("misspelled command", {"getToolInf"}, 2, "(did you mean getToolInfo?)");
        row("parameter first", {"lock=1", "getToolInfo"}, 2, "comes before any command");
        row("bad option value", {"--timeout", "soon", "getToolInfo"}, 2, "--timeout");
        row("no plug-ins", {"--plugins", "/nonexistent", "getToolInfo"}, 2, "/nonexistent");
        row("unset device variable", {"--device", "", "getToolInfo"}, 2, "--device needs a path");
        row("sim-arg with a device", {"--device", "/dev/null", "--sim-arg=--silent", "getToolInfo"}, 2, "--sim-arg is for");
        row("bad sim-arg", {"--sim-arg=--bogus", "getToolInfo"}, 2, "Unknown option 'bogus'");
        row("for without a listener", {"--for", "1", "getToolInfo"}, 2, "--for only limits a recurrent command");
        row("timeout beyond a timer", {"--timeout", "1e300", "getToolInfo"}, 2, "--timeout takes a number of seconds");
        row("nameless parameter", {"getToolInfo", "=1"}, 2, "parameter \"=1\" has no name");
        // Found before anything runs: --trace would show any frame sent.
        row("misspelled parameter", {"--trace", "listProgram", "setLock", "lok=1"}, 2, "unknown parameter \"lok\" (did you mean lock?)");
        row("no program id", {"setProgram"}, 2, "setProgram: no progId given (progId=VALUE: Program ID to select)");
        row("not a boolean", {"setLock", "lock=maybe"}, 0, "setLock reads lock=maybe as true (lock)");
        row("not a number", {"setPingInterval", "interval=abc"}, 0, "setPingInterval reads interval=abc as 150");
        row("beyond an int", {"setPingInterval", "interval=99999999999"}, 2, "interval=99999999999 is out of range");
        row("below a uint", {"getPresetData", "progId=-1"}, 2, "progId=-1 is out of range: the command takes whole numbers from 0");
        row("no program list", {"setProgram", "progId=2"}, 1, "listProgram, which must run first on the same command line");
        row("level refused", {"setLevelAccess", "level=L9"}, 1, "the tool refused access level \"L9\" (error code 2)");
        row("not a serial port", {"--device", "/etc/hostname", "getToolInfo"}, 1, "/etc/hostname: not a serial port (a file)");
        row("no folder for the results", {"--output", "/nonexistent/r.csv", "--for", "1", "listenEventsData"}, 2,
            "check that the folder /nonexistent exists");
        row("full disk ends the run", {"--output", "/dev/full", "--sim-arg=--event-period=50", "listenEventsData"}, 1,
            "cannot write /dev/full: No space left on device");
        // The simulator reports every 3 s by itself; a junk stream's critical lines are counted, not repeated.
        row("simulator reports", {"--for", "4.5", "listenEventsData"}, 0, "PASSED 1)");
        // A line alone in its second is said whole again (a loaded machine reads little junk per second):
        // hundreds of junk frames in 2.5 s, at most one whole line a second.
        row("junk stream", {"--sim-arg=--junk-period=1", "--for", "2.5", "listenEventsData"}, 0, "Thread =", 3);
        row("junk in the plug-in folder", {"--plugins", "PLUGINS", "list"}, 0, "libnotes.so");
        row("missing device", {"--device", "/nonexistent/rfcomm0", "getToolInfo"}, 1, "cannot open /nonexistent/rfcomm0");
        // A reply that never ends is cut at the engine's bound, not left to grow the host.
        row("reply without end", {"--sim-arg=--endless-reply", "--sim-arg=--baud=0", "getToolInfo"}, 1,
            "getToolInfo failed: Raw buffer overflow");
        row("stuck command", {"--timeout", "2", "--sim-arg=--silent", "getToolInfo"}, 1,
            "getToolInfo did not finish within 2 s; stopped");
    }

    // One line per fault, with the exit status the README gives; a failed command says so on stdout.
    void saidInOneLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, said);
        QFETCH(int, times);
        arguments.replaceInStrings("PLUGINS", m_plugins.path());
        DTimedHytorc hytorc(QStringList{"--json"} + arguments);
        QVERIFY(hytorc.waitForEnd(60000));
        QCOMPARE(hytorc.process.exitCode(), exitCode);
        QVERIFY2(hytorc.count(said) >= 1 && hytorc.count(said) <= times, hytorc.errText().constData());
        for (const DTimedHytorc::Line& line : hytorc.err)
            QVERIFY2(line.text.startsWith("hytorc: "), line.text.constData());
        if (exitCode == 2)
            QVERIFY(hytorc.err.size() == 1 && hytorc.out.isEmpty());
        if (exitCode == 0)  // the host goes on; only the junk is skipped
            QVERIFY(!hytorc.out.isEmpty() && hytorc.count("skipped in the plug-in folder") <= 1);
        if (exitCode == 1)
            QVERIFY(!hytorc.successes().contains(true));
    }

    // The other programs as a shell runs them, without a display: their output, then the status.
    void shellLines_data()
    {
        QTest::addColumn<QString>("line");  // $B: the programs, $T: a folder of the test's own
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("panel, no display, then one gone") << "$B/hytorc-panel; echo $?; DISPLAY=:97 $B/hytorc-panel"
            << QByteArray("hytorc-panel: no display to show the panel on (DISPLAY is not set): run it in a desktop session, or give "
                          "--screenshot FILE, which needs none\n2\nhytorc-panel: cannot show the panel: could not connect to "
                          "display :97; check DISPLAY, or give --screenshot FILE, which needs no display\n2\n");
        QTest::newRow("screenshot") << "$B/hytorc-panel --screenshot $T/p.png 2>&-; head -c4 $T/p.png | tail -c3; echo" << QByteArray("PNG\n0\n");
        QTest::newRow("completion") << ". /usr/share/bash-completion/bash_completion; . " HYTORC_COMPLETION "; COMP_CWORD=2 COMP_WORDS=($B/hytorc "
            "setLock l) COMP_LINE=\"$B/hytorc setLock l\" COMP_POINT=99; _hytorc 2>&-; echo ${COMPREPLY[*]}" << QByteArray("lock=\n0\n");
        QTest::newRow("follower whose reader left") << "timeout -s INT 3 $B/hytorcd --journal $T/r.db --op-port 0 2>&-; "
            "$B/hytorc results --follow --format csv --journal $T/r.db | head -n 1 | cut -d, -f1" << QByteArray("id\n0\n");
    }

    void shellLines()
    {
        QFETCH(QString, line);
        QFETCH(QByteArray, output);
        QTemporaryDir folder;
        QProcess shell;  // timeout ends the whole line, should it hang
        shell.start("timeout", {"-s", "KILL", "60", "env", "-u", "DISPLAY", "-u", "QT_QPA_PLATFORM", "T=" + folder.path(),
                                "B=" + qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin", "bash", "-c", "{ " + line + "; } 2>&1; echo $?"});
        QVERIFY(shell.waitForFinished(90000));
        QCOMPARE(shell.readAll(), output);
    }

    // SIGTERM (as Ctrl-C) stops the running command the host's way, and the rest of the sequence.
    void interruptedSequence()
    {
        DTimedHytorc hytorc({"--json", "--sim-arg=--silent", "getToolInfo", "getToolInfo"});
        QTest::qWait(1500);
        hytorc.process.terminate();
        QVERIFY2(hytorc.waitForEnd(10000), "the host must not ignore the signal");
        QCOMPARE(hytorc.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(hytorc.process.exitCode(), 1);
        QCOMPARE(hytorc.count("interrupted: 1 command(s) not run"), 1);
        QCOMPARE(hytorc.successes(), QList<bool>{false});
        QCOMPARE(hytorc.json(0).value("command").toString(), QStringLiteral("getToolInfo"));

        // Ctrl-C at a terminal reaches the whole process group, the simulator too: no link was lost.
        DTimedHytorc group({"--json", "--sim-arg=--event-period=100", "listenEventsData"});
        QTRY_VERIFY_WITH_TIMEOUT(!group.out.isEmpty(), 20000);
        const qint64 pid = group.process.processId();
        QFile children(QStringLiteral("/proc/%1/task/%1/children").arg(pid));
        QVERIFY(children.open(QIODevice::ReadOnly));
        const QList<QByteArray> members = children.readAll().split(' ') << QByteArray::number(pid);
        for (const QByteArray& member : members)
            ::kill(pid_t(member.toLongLong()), member.isEmpty() ? 0 : SIGINT);
        QVERIFY(group.waitForEnd(10000));
        QVERIFY2(group.process.exitCode() == 0 && group.count("link lost") == 0, group.errText().constData());

        // A reader that goes away ends the run: hytorc --json listenEventsData | head -n 2.
        QProcess listener, head;
        listener.setStandardOutputProcess(&head);
        head.start("head", {"-n", "2"});
        listener.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorc",
                       {"--json", "--sim-arg=--event-period=100", "listenEventsData"});
        QVERIFY(listener.waitForFinished(20000) && head.waitForFinished());
        QCOMPARE(listener.exitCode(), 1);
    }

    // The fifth frame the tool receives is the second command's request: the drop comes mid-command.
    void droppedInASequence_data()
    {
        QTest::addColumn<bool>("back");
        QTest::newRow("port back") << true;
        QTest::newRow("port never back") << false;
    }

    void droppedInASequence()
    {
        QFETCH(bool, back);
        DSimulatedTool tool;
        QVERIFY(tool.start(QStringList{"--drop-after=5"} + (back ? QStringList{"--reopen-after=300"} : QStringList())));
        DTimedHytorc hytorc({"--json", "--reconnect", "1", "--device", tool.linkPath(), "getToolInfo", "getToolInfo",
                             "getToolInfo"});
        QVERIFY(hytorc.waitForEnd(60000));
        const qint64 ended = hytorc.clock.elapsed();
        QCOMPARE(hytorc.process.exitCode(), 1);
        QCOMPARE(hytorc.successes(), (back ? QList<bool>{true, false, true} : QList<bool>{true, false}));
        const QByteArray ending = back ? "link back: " : "link not back within 1 s: 1 command(s) not run";

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

    void listenerResumesAfterADrop()
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

    // kill -9 of hytorc: its embedded simulator ends too, and takes its link's folder with it.
    void nothingOutlivesAKilledHost()
    {
        DTimedHytorc hytorc({"--for", "30", "listenEventsData"});
        QTRY_VERIFY_WITH_TIMEOUT(hytorc.count("using the tool simulator at ") == 1, 20000);
        const QString link = hytorc.errText().split(' ').last().trimmed();
        QFile children(QString("/proc/%1/task/%1/children").arg(hytorc.process.processId()));
        QVERIFY(children.open(QIODevice::ReadOnly) && QFileInfo::exists(link));
        // Gone, or a zombie that nothing reaps here: either way it has ended.
        const auto simulatorEnded = [stat = "/proc/" + children.readAll().trimmed() + "/stat"] {
            QFile file(stat);
            return !file.open(QIODevice::ReadOnly) || file.readAll().contains(") Z ");
        };
        QVERIFY(!simulatorEnded());
        hytorc.process.kill();
        QTRY_VERIFY_WITH_TIMEOUT(simulatorEnded(), 10000);
        QVERIFY(!QFileInfo::exists(QFileInfo(link).absolutePath()));
    }

private:
    QTemporaryDir m_plugins;
};

QTEST_GUILESS_MAIN(TestFieldFaults)
#include "test_field_faults.moc"
