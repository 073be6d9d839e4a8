// hytorcd as the plant runs it, a real process over the whole chain (plug-ins, driver,
// pseudo-terminal, simulator) writing a real SQLite journal, read back by `hytorc results`:
// each result field for field, a SIGKILL in the middle of a stream, a link that drops and
// comes back, and what is set or found wrong.
#include "d_exported_rows.h"
#include "d_hytorc_process.h"
#include "d_result_journal.h"
#include "d_simulated_tool.h"

#include <QJsonArray>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <csignal>

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

} // namespace

class TestStation : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString journal() const { return m_dir.filePath("results.db"); }
    DTimedHytorc* service(const QString& link, const QString& journalPath)
    {
        return new DTimedHytorc({"--device", link, "--journal", journalPath, "--station", "ST20"},
                                QProcessEnvironment::systemEnvironment(), "hytorcd");
    }

private slots:
    // Every report journaled once, exported field for field in both formats; SIGTERM ends it at once.
    void resultsJournaledAndExported()
    {
        DSimulatedTool tool;
        QVERIFY(tool.start({"--record", tool.recordPath(), "--event-shape", "mixed"}));
        QScopedPointer<DTimedHytorc> station(service(tool.linkPath(), journal()));
        QVERIFY(QTest::qWaitFor([&] { return station->count("listening") == 1; }, 20000));
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

    // What is set or found wrong: one line naming it, exit 2 (settings) or 1 (journal), the file kept.
    void refusedAtStart_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<QByteArray>("journal");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("said");
        const QByteArray none;
        QTest::newRow("unknown key") << QStringList() << QByteArray("device = /dev/ttyS0\nbaud = 9600\n") << none << 2
                                     << QByteArray("unknown key \"baud\" (known: device, bluetooth, journal, station");
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
    }
    void refusedAtStart()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, config);
        QFETCH(QByteArray, journal);
        QFETCH(int, status);
        QFETCH(QByteArray, said);
        const QString configPath = m_dir.filePath("bad.conf");
        const QString journalPath = m_dir.filePath(QString("bad-%1.db").arg(QTest::currentDataTag()));
        for (const auto& [path, content] : {std::pair(configPath, config), std::pair(journalPath, journal)}) {
            QFile file(path);
            QVERIFY(content.isEmpty() || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
        }
        if (!config.isEmpty())
            arguments << "--config" << configPath;
        DTimedHytorc station(arguments + QStringList{"--journal", journalPath, "--device", "/dev/null"},
                             QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY(station.waitForEnd(10000));
        QCOMPARE(station.process.exitCode(), status);
        QCOMPARE(station.err.size(), 1);
        QVERIFY2(station.err.first().text.contains(said), station.errText().constData());
        QFile kept(journalPath);
        QVERIFY(journal.isEmpty() || (kept.open(QIODevice::ReadOnly) && kept.readAll() == journal));
    }
};

QTEST_GUILESS_MAIN(TestStation)
#include "test_station.moc"
