// hytorcd as the plant runs it, a real process over the whole chain (plug-ins, driver,
// pseudo-terminal, simulator) writing a real SQLite journal, read back by `hytorc results`:
// each result field for field, a SIGKILL in the middle of a stream, a link that drops and
// comes back, a disk that fills up under the journal, doubled reports, a Bluetooth service
// that is not there, and what is set or found wrong.
#include "d_exported_rows.h"
#include "d_hytorc_process.h"
#include "d_mosquitto_broker.h"
#include "d_result_journal.h"
#include "d_simulated_tool.h"
#include "d_stand_in_tools.h"

#include <QJsonArray>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace {


// The report lines the simulator sent, in order.
QStringList sentReports(const QJsonObject& record)
{
    QStringList lines;
    for (const QJsonValue& value : record.value("reports").toArray()) {
        if (value.toObject().value("sent").toBool())
            lines << value.toObject().value("line").toString();
    }
    return lines;
}

QString reportKey(const QJsonObject& row)
{
    return row.value("date").toString() + row.value("time").toString() + "," + row.value("jobId").toString();
}

QString reportKey(const QString& line)
{
    const QStringList fields = line.split(',');
    return fields.value(0).trimmed() + fields.value(1).trimmed() + "," + fields.value(3).trimmed();
}

QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What `command` (sh) prints.
QByteArray sh(const QString& command)
{
    QProcess shell;
    shell.start("sh", {"-c", command});
    return shell.waitForFinished(15000) ? shell.readAllStandardOutput().trimmed() : QByteArray();
}

} // namespace

class TestStation : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString journal() const { return m_dir.filePath("results.db"); }
    DTimedHytorc* service(const QString& link, const QString& journalPath)
    {
        return new DTimedHytorc({"--device", link, "--journal", journalPath, "--station", "ST20", "--op-port", "0"},
                                QProcessEnvironment::systemEnvironment(), "hytorcd");
    }

private slots:
    // Every report journaled once, exported field for field in both formats; SIGTERM ends it at once.
    void resultsJournaledAndExported()
    {
        DSimulatedTool tool;
        // Frames written twice, as a flaky radio link does: a doubled report is still one tightening.
        QVERIFY(tool.start({"--record", tool.recordPath(), "--event-shape", "mixed", "--duplicate-writes", "100"}));
        QScopedPointer<DTimedHytorc> station(service(tool.linkPath(), journal()));
        // A doubled reply frame can cost the first identification its transaction; the retry follows.
        QVERIFY2(QTest::qWaitFor([&] { return station->count("listening") == 1; }, 60000), station->errText().constData());
        for (int i = 0; i < 6; ++i)
            tool.say("event");
        QVERIFY(QTest::qWaitFor([&] { return exported(journal()).size() == 4; }, 10000));
        station->process.terminate();
        QVERIFY(station->waitForEnd(2000));
        QCOMPARE(station->process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(station->process.exitCode(), 0);

        QStringList published;
        for (const QJsonValue& value : tool.stopAndReadRecord().value("reports").toArray()) {
            if (value.toObject().value("published").toBool())
                published << value.toObject().value("line").toString();
        }
        const QList<QJsonObject> rows = exported(journal());
        QCOMPARE(rows.size(), published.size());
        QVERIFY2(station->count(QByteArray::number(rows.size()) + " doubled report(s) dropped this run") == 1, station->errText().constData());
        for (int i = 0; i < rows.size(); ++i) {
            const QStringList f = published.at(i).split(',');
            const QJsonObject& row = rows.at(i);
            QCOMPARE(row.keys().size(), 31);
            QCOMPARE(row.value("id").toInt(), i + 1);
            QCOMPARE(row.value("station").toString(), QStringLiteral("ST20"));
            QCOMPARE(row.value("toolSerial").toString(), QStringLiteral("HYT24A0137"));
            const QStringList texts{row.value("date").toString(), row.value("time").toString(),
                                    QString::number(row.value("duration").toInt()), row.value("jobId").toString(),
                                    row.value("profileName").toString(), row.value("mode").toString()};
            QCOMPARE(texts, (QStringList{f.at(0), f.at(1), f.at(2), f.at(3), f.at(4), f.at(5)}));
            QCOMPARE(row.value("torqueUnit").toString(), f.at(10));
            QCOMPARE(row.value("status").toString(), f.at(13));
            QCOMPARE(row.value("convertedTorque").toInt(), int(f.at(14).toDouble() * 100));
            QCOMPARE(row.value("progId").toInt(), 1);
            QVERIFY(QDateTime::fromString(row.value("receivedAt").toString(), Qt::ISODateWithMs).isValid());
        }
        DTimedHytorc csv({"results", "--journal", journal(), "--format", "csv", "--since", "1"});
        QVERIFY(csv.waitForEnd(10000));
        QCOMPARE(csv.out.size(), rows.size());  // the header, then rows 2 and after
        QVERIFY(csv.out.first().text.startsWith("id,receivedAt,station,toolSerial,date,time,duration,jobId"));
        QVERIFY(csv.out.at(1).text.startsWith("2,"));
    }

    // Killed with SIGKILL mid-stream and restarted on the same journal: intact, each result once,
    // none missing but those of the last moments before the kill, ids in order.
    void killedMidStreamLosesNothingCommitted()
    {
        const QString path = m_dir.filePath("killed.db");
        DSimulatedTool tool;
        QVERIFY(tool.start({"--record", tool.recordPath(), "--event-period", "15"}));
        QScopedPointer<DTimedHytorc> killed(service(tool.linkPath(), path));
        QVERIFY(QTest::qWaitFor([&] { return killed->count("listening") == 1; }, 20000));
        QTest::qWait(1500);
        ::kill(pid_t(killed->process.processId()), SIGKILL);
        QVERIFY(killed->waitForEnd(5000));
        const QList<QJsonObject> beforeKill = exported(path);
        QScopedPointer<DTimedHytorc> second(service(tool.linkPath(), path));
        QVERIFY(QTest::qWaitFor([&] { return second->err.size() > 0 && second->count("listening") == 1; }, 30000));
        QVERIFY2(second->errText().contains(QByteArray("last id ") + QByteArray::number(beforeKill.size())),
                 second->errText().constData());
        QTest::qWait(1000);
        tool.say("quiet");
        QTest::qWait(500);
        second->process.terminate();
        QVERIFY(second->waitForEnd(2000));
        const QStringList sent = sentReports(tool.stopAndReadRecord());

        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "check");
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery check("PRAGMA integrity_check", db);
        QVERIFY(check.next());
        QCOMPARE(check.value(0).toString(), QStringLiteral("ok"));
        const QList<QJsonObject> rows = exported(path);
        QVERIFY(rows.size() > beforeKill.size() && beforeKill.size() > 20);
        QSet<QString> journaled;
        for (int i = 0; i < rows.size(); ++i) {
            QVERIFY(i == 0 || rows.at(i).value("id").toInt() > rows.at(i - 1).value("id").toInt());
            QVERIFY2(!journaled.contains(reportKey(rows.at(i))), "a result journaled twice");
            journaled << reportKey(rows.at(i));
        }
        // Reports of the first service up to the last one it committed, and all of the second's.
        const auto sentIndex = [&](const QJsonObject& row) {
            for (int i = 0; i < sent.size(); ++i) {
                if (reportKey(sent.at(i)) == reportKey(row))
                    return i;
            }
            return -1;
        };
        // (The simulator reports from its start on, before anyone listens.)
        const int first = sentIndex(rows.first());
        const int lastBefore = sentIndex(beforeKill.last());
        const int firstAfter = sentIndex(rows.at(beforeKill.size()));
        QVERIFY(first >= 0 && lastBefore > first && firstAfter > lastBefore);
        for (int i = first; i < sent.size(); ++i) {
            if (i <= lastBefore || i >= firstAfter)
                QVERIFY2(journaled.contains(reportKey(sent.at(i))), qPrintable("lost: " + sent.at(i)));
        }
    }

    // The tool's port goes and comes back: said once each way, and results are journaled again.
    void linkDroppedAndBack()
    {
        const QString path = m_dir.filePath("dropped.db");
        DSimulatedTool tool;
        QVERIFY(tool.start({"--event-period", "200", "--drop-after", "12", "--reopen-after", "1500"}));
        QScopedPointer<DTimedHytorc> station(service(tool.linkPath(), path));
        QVERIFY(QTest::qWaitFor([&] { return station->count("link lost") == 1; }, 20000));
        const int beforeBack = exported(path).size();
        QVERIFY(QTest::qWaitFor([&] { return station->count("listening") == 2; }, 20000));
        QVERIFY(QTest::qWaitFor([&] { return exported(path).size() > beforeBack + 2; }, 10000));
        QCOMPARE(station->count("retrying in 1 s"), 1);
        QCOMPARE(station->count("connected to HYT24A0137"), 2);
    }

    // What is set or found wrong: one line naming it, exit 2 (settings) or 1 (journal), the journal's
    // bytes as they were. A read-only file or folder is met by an unprivileged user, as root writes any.
    void refusedAtStart_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<QByteArray>("journal");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("said");
        const QByteArray none;
        sh("cd " + m_dir.path() + " && sqlite3 newer.db 'CREATE TABLE results (id); PRAGMA user_version=99' && sqlite3 "
           "foreign.db 'CREATE TABLE customers (name)' && sqlite3 made.db 'CREATE TABLE results (id); PRAGMA user_version=2'");
        const auto refused = [&](const char* tag, const QString& file, const char* said) {
            QTest::newRow(tag) << QStringList() << none << bytesOf(m_dir.filePath(file)) << 1 << QByteArray(said);
        };
        QTest::newRow("unknown key") << QStringList() << QByteArray("device = /dev/ttyS0\nbaud = 9600\n") << none << 2
                                     << QByteArray("unknown key \"baud\" (known: device, bluetooth, journal, station, hold");
        QTest::newRow("bad value") << QStringList() << QByteArray("bluetooth = 00:1A\n") << none << 2
                                   << QByteArray("key \"bluetooth\": \"00:1A\" is not allowed (allowed: a Bluetooth address");
        QTest::newRow("option wins") << QStringList{"--station", ""} << QByteArray("station = A\n") << none << 2
                                     << QByteArray("--station: \"\" is not allowed (allowed: a name of 1 to 25");
        QTest::newRow("unreadable") << QStringList{"--config", "/nonexistent/hytorcd.conf"} << none << none << 2
                                    << QByteArray("/nonexistent/hytorcd.conf: cannot read the file");
        QTest::newRow("tool twice") << QStringList{"--device", "/dev/null", "--bluetooth", "00:1A:7D:DA:71:13"} << none
                                    << none << 2 << QByteArray("--device and --bluetooth name the tool twice");
        QTest::newRow("min above max") << QStringList() << QByteArray("[program.2]\ntorque_min = 50\ntorque_max = 40.5\n") << none
                                       << 2 << QByteArray("[program.2]: torque_min 50 is above torque_max 40.5");
        QTest::newRow("batch of 100") << QStringList() << QByteArray("[program.1]\nbatch_size = 100\n") << none << 2
                                      << QByteArray("key \"batch_size\": \"100\" is not allowed (allowed: 1 to 99 tightenings)");
        QTest::newRow("negative limit") << QStringList() << QByteArray("[program.1]\nangle_min = -5\n") << none << 2
                                        << QByteArray("key \"angle_min\": \"-5\" is not allowed (allowed: a number, 0 or more)");
        QTest::newRow("program 0") << QStringList() << QByteArray("[program.0]\nbatch_size = 2\n") << none << 2
                                   << QByteArray("a program section is [program.N]");
        QTest::newRow("bad pattern") << QStringList{"--scanner_part2", "(["} << none << none << 2
                                     << QByteArray("--scanner_part2: \"([\" is not allowed (allowed: a regular expression)");
        QTest::newRow("not a journal") << QStringList() << none << QByteArray("results: 3\n") << 1
                                       << QByteArray("file is not a database");
        refused("another program's file", "foreign.db", "is another program's SQLite file, not a result journal");
        refused("newer version", "newer.db", "schema version 99 is newer than this program's 2; use a newer hytorcd");
        refused("read-only file", "made.db", "the file is read-only (Permission denied)");
        refused("read-only folder", "made.db", "is read-only (Permission denied): check the folder's owner");
        refused("disk full", "made.db", "no space left on its file system (0 KiB free)");
        refused("second service", "none", "is in use by another hytorcd (pid ");
    }
    void refusedAtStart()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, config);
        QFETCH(QByteArray, journal);
        const QString fault = QTest::currentDataTag();
        QFETCH(int, status);
        QFETCH(QByteArray, said);
        const QString folder = m_dir.filePath(QString(fault).replace(' ', '-').remove('\''));
        const QString configPath = folder + "/bad.conf", journalPath = folder + "/results.db";
        if (fault == "disk full" && sh("mkdir -p " + folder + " && mount -t tmpfs -o size=1m tmpfs " + folder + " && echo ok") != "ok")
            QSKIP("mounting a 1 MB tmpfs needs root");
        const auto unmount = qScopeGuard([&] { sh(fault == "disk full" ? "umount -l " + folder : QString()); });
        QVERIFY(QDir().mkpath(folder) && QFile::setPermissions(m_dir.path(), QFileDevice::Permissions(0x7755)));
        for (const auto& [path, content] : {std::pair(configPath, config), std::pair(journalPath, journal)}) {
            QFile file(path);
            QVERIFY(content.isEmpty() || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
        }
        QVERIFY(::chmod(qPrintable(folder), fault == "read-only folder" ? 0555 : 0777) == 0
                && (journal.isEmpty() || ::chmod(qPrintable(journalPath), fault == "read-only file" ? 0444 : 0666) == 0));
        sh(fault == "disk full" ? "cat /dev/zero > " + folder + "/filler" : QString());
        DSimulatedTool tool;
        QScopedPointer<DTimedHytorc> first(fault == "second service" && tool.start({}) ? service(tool.linkPath(), journalPath) : nullptr);
        QVERIFY(!first || QTest::qWaitFor([&] { return first->count("listening") == 1; }, 20000));
        said += first ? QByteArray::number(first->process.processId()) + ", lock " + journalPath.toUtf8() + ".lock)" : "";
        if (!config.isEmpty())
            arguments << "--config" << configPath;
        const QStringList user{"--reuid=nobody", "--regid=nogroup", "--clear-groups"};
        QProcess station;
        station.start("setpriv", QStringList(::geteuid() == 0 && fault.startsWith("read-only") ? user : QStringList()) << "--"
                                     << qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorcd" << arguments << "--journal"
                                     << journalPath << "--device" << "/dev/null");
        const bool ended = station.waitForFinished(10000);
        const QByteArray err = station.readAllStandardError();
        QVERIFY2(ended && station.exitCode() == status && err.count('\n') == 1 && err.contains(said), err.constData());
        QVERIFY(journal.isEmpty() || (bytesOf(journalPath) == journal && !QFile::exists(journalPath + "-wal")));
        if (journal.isEmpty() || fault != "newer version")
            return;
        // The export refuses it too.
        DTimedHytorc results({"results", "--journal", journalPath});
        QVERIFY(results.waitForEnd(10000) && results.process.exitCode() == 1 && bytesOf(journalPath) == journal);
        QVERIFY2(results.errText().contains(said.replace("hytorcd", "hytorc")), results.errText().constData());
    }

    // Results streamed while the disk under the journal is full: held, then all committed in order
    // once space returns, ids without a gap; past --hold the newest are lost, and the loss is a row of
    // the events table, a line and the MQTT status.
    void diskFullWhileStreaming_data()
    {
        QTest::addColumn<int>("hold");
        QTest::newRow("all held") << 10000;
        QTest::newRow("past --hold") << 3;
    }
    void diskFullWhileStreaming()
    {
        QFETCH(int, hold);
        QTemporaryDir dir;
        const QString disk = dir.filePath("disk");
        if (sh("mkdir -p " + disk + " && mount -t tmpfs -o size=1m tmpfs " + disk + " && echo ok") != "ok")
            QSKIP("mounting a 1 MB tmpfs needs root");
        const auto unmount = qScopeGuard([&] { sh("umount -l " + disk); });
        DMosquittoBroker broker(dir.path());
        DSimulatedTool tool;
        QVERIFY(broker.start() && tool.start({"--record", tool.recordPath(), "--event-period", "200"}));
        DTimedHytorc station({"--device", tool.linkPath(), "--journal", disk + "/results.db", "--station", "T1", "--op-port", "0",
                              "--hold", QString::number(hold), "--mqtt", QString("mqtt://127.0.0.1:%1").arg(broker.port())},
                             QProcessEnvironment::systemEnvironment(), "hytorcd");
        const auto said = [&](const QByteArray& text, int ms) { return QTest::qWaitFor([&] { return station.count(text) == 1; }, ms); };
        const auto pause = [](int ms) { return QTest::qWait(ms), true; };
        QVERIFY(said("listening", 20000) && pause(1000));
        sh("cat /dev/zero > " + disk + "/filler");
        QVERIFY(said("results cannot be committed (disk full): holding them", 10000) && pause(3000));
        QFile::remove(disk + "/filler");
        QVERIFY(said("results committed again after", 20000) && pause(1000));
        tool.say("quiet");
        QTest::qWait(1000);
        const QByteArray status = sh(QString("mosquitto_sub -h 127.0.0.1 -p %1 -t hytorc/T1/status -C 1 -W 5").arg(broker.port()));
        station.process.terminate();
        QVERIFY(station.waitForEnd(5000));

        const QList<QJsonObject> rows = exported(disk + "/results.db");
        QStringList expected, journaled;
        for (const QString& line : sentReports(tool.stopAndReadRecord()))
            expected << reportKey(line);
        for (const QJsonObject& row : rows)
            journaled << reportKey(row);
        QCOMPARE(rows.value(rows.size() - 1).value("id").toInt(), rows.size());  // ids without a gap
        expected = expected.mid(expected.indexOf(journaled.value(0)));
        const int lost = expected.size() - journaled.size();
        QVERIFY2(hold == 10000 ? lost == 0 : lost > 3, qPrintable(QString::number(lost)));
        // The oldest held are kept: what is missing is one run, the newest of the outage.
        const int gap = int(std::mismatch(journaled.begin(), journaled.end(), expected.begin()).first - journaled.begin());
        QCOMPARE(journaled.mid(gap), expected.mid(gap + lost));
        const QByteArray event = sh("sqlite3 " + disk + "/results.db 'SELECT kind, text FROM events'");
        const QRegularExpression loss(QString("^results-lost\\|(%1 results lost: disk full from 20\\S+Z to 20\\S+Z)$").arg(lost));
        QVERIFY2(lost == 0 ? event.isEmpty() : loss.match(event).hasMatch(), event.constData());
        const QByteArray text = loss.match(event).captured(1).toUtf8();
        QVERIFY(lost == 0 ? station.count("results lost") == 0 : station.count(text) == 1);
        QVERIFY2(status.contains("\"resultsLost\":\"" + text + "\"") == lost > 0, status.constData());
    }

    // --bluetooth without the bluetooth service or without a system bus: the command line's words,
    // then retries without end; SIGHUP ends the service as SIGTERM does.
    void bluetoothOutageRetried_data()
    {
        QTest::addColumn<QByteArray>("said");
        QTest::newRow("no bluetooth service") << QByteArray("retrying in 1 s (the bluetooth service (org.bluez) is not "
                                                                    "on the system bus: start it (service bluetooth start))");
        QTest::newRow("no system bus") << QByteArray("bluetoothctl cannot reach the bluetooth service; start it "
                                                              "(service dbus start; service bluetooth start))");
    }
    void bluetoothOutageRetried()
    {
        QFETCH(QByteArray, said);
        const bool busRuns = QTest::currentDataTag() == QByteArray("no bluetooth service");
        DStandInTools tools;
        QVERIFY(busRuns ? tools.startSystemBus() : QFile::remove(tools.dir() + "/bus"));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH", tools.pathVariable());
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + tools.dir() + "/bus");
        DTimedHytorc station({"--bluetooth", "00:1A:7D:DA:71:13", "--journal", m_dir.filePath("bt.db"), "--op-port", "0"},
                             environment, "hytorcd");
        QVERIFY2(QTest::qWaitFor([&] { return station.count(said) == 1; }, 10000), station.errText().constData());
        QVERIFY(!station.waitForEnd(4000) && tools.calls().isEmpty());
        ::kill(pid_t(station.process.processId()), SIGHUP);
        QVERIFY(station.waitForEnd(3000) && station.process.exitStatus() == QProcess::NormalExit);
        QVERIFY2(station.process.exitCode() == 0 && station.count("stopping") == 1, station.errText().constData());
    }
};

QTEST_GUILESS_MAIN(TestStation)
#include "test_station.moc"
