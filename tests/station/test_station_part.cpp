// The part behind every tightening, on real processes: hytorcd with the simulator and its
// scanner pseudo-terminal, a real SQLite journal, `hytorc identify` on the local socket, the
// export and a real mosquitto; the migration of a journal of the previous release; bad input.
#include "d_exported_rows.h"
#include "d_hytorc_process.h"
#include "d_mosquitto_broker.h"
#include "d_result_journal.h"
#include "d_simulated_tool.h"
#include "d_station_part.h"

#include <QJsonArray>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

namespace {


QStringList column(const QList<QJsonObject>& rows, const QString& key)
{
    QStringList values;
    for (const QJsonObject& row : rows)
        values << row.value(key).toVariant().toString();
    return values;
}

QStringList eventKinds(const QString& journal)
{
    QSqlDatabase db = QSqlDatabase::contains(journal) ? QSqlDatabase::database(journal) : QSqlDatabase::addDatabase("QSQLITE", journal);
    db.setDatabaseName(journal);
    db.open();
    QStringList kinds;
    QSqlQuery query(db);
    for (query.exec("SELECT kind FROM events WHERE kind IN ('lock', 'unlock') ORDER BY id"); query.next();)
        kinds << query.value(0).toString();
    return kinds;
}

} // namespace

class TestStationPart : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // hytorcd on the simulator and its scanner, with `config` as its settings file.
    DTimedHytorc* station(DSimulatedTool* tool, const QString& name, const QByteArray& config, const QStringList& more = {})
    {
        QFile file(m_dir.filePath(name + ".conf"));
        file.open(QIODevice::WriteOnly);
        file.write(config);
        file.close();
        return new DTimedHytorc(QStringList{"--config", file.fileName(), "--device", tool->linkPath(), "--journal",
                                            m_dir.filePath(name + ".db"), "--station", "ST", "--scanner",
                                            m_dir.filePath(name + ".scan"), "--op-port", "0"} + more,
                                QProcessEnvironment::systemEnvironment(), "hytorcd");
    }

private slots:
    // Batch of 3 with error-proofing: locked until the scan, a NOK that does not count, locked on
    // the wire after the third OK, a trigger then gets no result, the next scan unlocks; every
    // result stamped in the journal, the export and the MQTT payload.
    void batchWithErrorProofing()
    {
        DMosquittoBroker broker(m_dir.path());
        QVERIFY(broker.start());
        QProcess subscriber;
        subscriber.start("mosquitto_sub", {"-h", "127.0.0.1", "-p", QString::number(broker.port()), "-t",
                                           "hytorc/ST/results"});
        DSimulatedTool tool;
        QVERIFY(tool.start({"--record", tool.recordPath(), "--event-period", "0", "--scanner-link", m_dir.filePath("e2e.scan")}));
        QScopedPointer<DTimedHytorc> hytorcd(station(&tool, "e2e", "[program.1]\ntorque_min = 100\ntorque_max = 150\nbatch_size = 3\n",
                                                     {"--require-identifier", "--mqtt", QString("mqtt://127.0.0.1:%1").arg(broker.port())}));
        const QString journal = m_dir.filePath("e2e.db");
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("tool locked: no identifier yet") == 1; }, 20000));
        QCOMPARE(int(QFileInfo(m_dir.filePath("e2e.sock")).permissions() & 0x7077), int(QFile::ReadOwner | QFile::WriteOwner));  // 0600
        tool.say("event");
        tool.say("scan VIN-A");
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("tool unlocked: identifier VIN-A") == 1; }, 10000));
        for (const QByteArray& trigger : {"event", "nok", "event", "event", "event"}) {
            tool.say(trigger);
            QTest::qWait(trigger == "nok" ? 0 : 700);
        }
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("tool locked: batch of program 1 done (3 of 3)") == 1; }, 10000));
        QVERIFY2(hytorcd->count("a NOK tightening (FAILED) does not count in the batch of program 1 (1 of 3)") == 1,
                 hytorcd->errText().constData());
        tool.say("event");
        DTimedHytorc identify({"identify", "BODY-7", "--part", "2", "--journal", journal});
        QVERIFY(identify.waitForEnd(10000) && identify.process.exitCode() == 0);
        tool.say("scan VIN-B");
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("tool unlocked: identifier VIN-B") == 1; }, 10000));
        tool.say("event");
        QVERIFY(QTest::qWaitFor([&] { return exported(journal).size() == 5; }, 10000));
        QByteArray payloads;
        QVERIFY(QTest::qWaitFor([&] { return (payloads += subscriber.readAllStandardOutput()).count('\n') == 5; }, 30000));

        const QList<QJsonObject> rows = exported(journal);
        QCOMPARE(column(rows, "identifier"), (QStringList{"VIN-A", "VIN-A", "VIN-A", "VIN-A", "VIN-B"}));
        QCOMPARE(column(rows, "identifier2"), (QStringList{"", "", "", "", "BODY-7"}));
        QCOMPARE(column(rows, "status"), (QStringList{"PASSED", "FAILED", "PASSED", "PASSED", "PASSED"}));
        QCOMPARE(column(rows, "batchCounter"), (QStringList{"1", "1", "2", "3", "1"}));
        QCOMPARE(column(rows, "batchStatus"), (QStringList{"0", "0", "0", "1", "0"}));
        QCOMPARE(column(rows, "torqueMin") + column(rows, "angleMin").mid(4), (QStringList{"100", "100", "100", "100", "100", ""}));
        QCOMPARE(rows.last().value("torqueStatus").toString(), QStringLiteral("high"));  // 12 ft.lb x 10 is 163 N·m
        QCOMPARE(rows.last().keys().size(), 31);
        QCOMPARE(exported(journal, {"--identifier", "BODY-7"}).size(), 1);
        QCOMPARE(eventKinds(journal), (QStringList{"lock", "unlock", "lock", "unlock"}));

        QList<QJsonObject> published;
        for (const QByteArray& line : payloads.split('\n'))
            line.isEmpty() ? void() : published.append(QJsonDocument::fromJson(line).object());
        QCOMPARE(column(published, "identifier"), column(rows, "identifier"));
        QCOMPARE(column(published, "batchStatus"), column(rows, "batchStatus"));

        hytorcd->process.terminate();
        QVERIFY(hytorcd->waitForEnd(5000));
        subscriber.kill();
        subscriber.waitForFinished();
        QStringList locks;
        const QJsonObject record = tool.stopAndReadRecord();
        for (const QJsonValue& request : record.value("requests").toArray()) {
            if (request.toString().startsWith("SET FLAGS OPEN_PROTOCOL"))
                locks << (request.toString().contains("LOCK") ? "lock" : "unlock");
        }
        QCOMPARE(locks, eventKinds(journal));  // on the wire, in the same order
        QCOMPARE(record.value("reports").toArray().size(), 5);  // none while locked
    }

    // A lock from Open Protocol 0042 is stronger: a scan does not lift it, and the tool stays
    // locked on the wire until the client's 0043.
    void clientLockIsStronger()
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const QString port = QString::number(probe.serverPort());
        probe.close();
        DSimulatedTool tool;
        QVERIFY(tool.start({"--record", tool.recordPath(), "--event-period", "0", "--scanner-link", m_dir.filePath("op.scan")}));
        QScopedPointer<DTimedHytorc> hytorcd(station(&tool, "op", QByteArray(), {"--require-identifier", "--op-port", port}));
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("tool locked: no identifier yet") == 1; }, 20000));
        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, quint16(port.toInt()));
        QVERIFY(client.waitForConnected(5000));
        QByteArray answers;
        for (const QByteArray& mid : {"0001", "0042"}) {
            client.write("0020" + mid + "001         " + QByteArray(1, '\0'));
            QVERIFY(QTest::qWaitFor([&] { return (answers += client.readAll()).count('\0') == (mid == "0001" ? 1 : 2); }, 10000));
        }
        QVERIFY2(answers.contains("00240005001         0042"), answers.constData());
        tool.say("scan VIN-OP");
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("it stays locked by an Open Protocol 0042 until a 0043") == 1; }, 10000));
        tool.say("event");
        QTest::qWait(1000);
        hytorcd->process.terminate();
        QVERIFY(hytorcd->waitForEnd(5000));
        const QJsonObject record = tool.stopAndReadRecord();
        QCOMPARE(record.value("reports").toArray().size(), 0);
        QVERIFY(record.value("requests").toArray().last().toString().contains("OPEN_PROTOCOL_LOCK"));
    }

    // The batch's rules on a real journal: a NOK does not count, a program change resets, a batch
    // size set at run time outlives a restart and is refused outside 1..99; statuses from the limits.
    void batchRules()
    {
        const QString path = m_dir.filePath("rules.db");
        DResultJournal journal;
        QString error;
        QVERIFY(journal.open(path, DResultJournal::CeWriter, &error));
        {
            DStationPart part(&journal, "ST");
            part.setProgramSettings({{1, {100.0, 150.0, std::nullopt, std::nullopt, 2}}});
            QVERIFY(!part.setBatchSize(3, 0, &error) && !part.setBatchSize(3, 100, &error));
            QVERIFY(part.setBatchSize(3, 4, &error));
        }
        DStationPart part(&journal, "ST");
        part.setProgramSettings({{1, {100.0, 150.0, std::nullopt, std::nullopt, 2}}});
        QCOMPARE(part.programSettings(3).batchSize, 4);
        QVERIFY(part.identify(1, "VIN-R", "test", &error));
        QStringList seen;
        QVariantMap record;
        for (const auto& [progId, status, torque] : {std::tuple(1, "PASSED", 9000), std::tuple(1, "FAILED", 12000),
                                                     std::tuple(1, "PASSED", 16000), std::tuple(3, "PASSED", 7000)}) {
            record = {{"progId", progId}, {"status", status}, {"convertedTorque", torque}, {"torqueUnit", "N.m"}};
            part.stamp(&record);
            seen << QString("%1/%2 %3 %4").arg(record.value("batchCounter").toInt()).arg(record.value("batchSize").toInt())
                        .arg(record.value("batchStatus").toInt()).arg(record.value("torqueStatus").toString());
        }
        QCOMPARE(seen, (QStringList{"1/2 0 low", "1/2 0 ok", "2/2 1 high", "1/4 0 "}));
        QVERIFY(journal.append(record, "ST", "HYT1", &error) > 0);
        const DStationPart restarted(&journal, "ST");
        QCOMPARE(restarted.identifier(1), QStringLiteral("VIN-R"));
        QCOMPARE(restarted.batchSize(), 4);
        QCOMPARE(restarted.batchCounter(), 1);
    }

    // A journal of the previous release (schema 1) is migrated in place: every row kept, field
    // for field, with no identifier; the new columns are written and filtered on after it.
    void migrationKeepsEveryRow()
    {
        const QString path = m_dir.filePath("v1.db");
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "v1");
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QSqlQuery query(db);
            for (const char* statement : {
                     "CREATE TABLE results (id INTEGER PRIMARY KEY AUTOINCREMENT, receivedAt INTEGER NOT NULL,"
                     " station TEXT NOT NULL, toolSerial TEXT NOT NULL, date TEXT, time TEXT, duration INTEGER, jobId TEXT,"
                     " profileName TEXT, mode TEXT, snugTorqueAngle TEXT, torqueUnit TEXT, direction TEXT, status TEXT,"
                     " convertedTorque INTEGER, angleUnit TEXT, progId INTEGER, eventCountNo INTEGER)",
                     "CREATE INDEX results_receivedAt ON results(receivedAt)",
                     "CREATE TABLE tool_changes (at INTEGER NOT NULL, station TEXT NOT NULL, previousSerial TEXT NOT NULL, serial TEXT NOT NULL)",
                     "CREATE TABLE state (key TEXT PRIMARY KEY, value TEXT NOT NULL)",
                     "INSERT INTO results VALUES (NULL, 1700000000000, 'ST', 'HYT1', '2026-11-23', '08:00:00', 1500, '7',"
                     " 'P1', 'TQ', '12.000', 'FTLB', 'CW', 'PASSED', 12098, 'DEG', 1, 58)",
                     "INSERT INTO results SELECT NULL, receivedAt + 1, station, toolSerial, date, time, duration, jobId,"
                     " profileName, mode, snugTorqueAngle, torqueUnit, direction, 'FAILED', convertedTorque, angleUnit, 2, 59 FROM results",
                     "INSERT INTO state VALUES ('mqtt.acked', '2')", "PRAGMA user_version=1"})
                QVERIFY2(query.exec(statement), statement);
        }
        QSqlDatabase::removeDatabase("v1");
        const QList<QJsonObject> before = exported(path);
        DResultJournal journal;
        QString error;
        QVERIFY2(journal.open(path, DResultJournal::CeWriter, &error), qPrintable(error));
        QCOMPARE(journal.state("mqtt.acked"), QStringLiteral("2"));
        QCOMPARE(journal.row(2).value("status").toString(), QStringLiteral("FAILED"));
        QVERIFY(!journal.row(2).contains("identifier") && !journal.row(2).contains("batchStatus"));
        QVERIFY(journal.append({{"status", "PASSED"}, {"identifier", "VIN-C"}, {"torqueMin", 1.5}, {"batchStatus", 2}}, "ST", "HYT1", &error) == 3);
        journal.close();
        const QList<QJsonObject> after = exported(path);
        QCOMPARE(after.size(), 3);
        for (int i = 0; i < before.size(); ++i) {
            for (const QString& key : before.at(i).keys())
                QCOMPARE(after.at(i).value(key), before.at(i).value(key));
            QCOMPARE(after.at(i).value("identifier").toString(), QString());
        }
        QCOMPARE(exported(path, {"--identifier", "VIN-C"}).value(0).value("torqueMin").toDouble(), 1.5);
        QCOMPARE(exported(path, {"--identifier", "VIN-C"}).size(), 1);
    }

    // What a scanner or a person may send that is no identifier: one clear line, the identifier
    // current before it stays, the next result is stamped with that one.
    void badIdentifiers_data()
    {
        QTest::addColumn<QByteArray>("scanned");
        QTest::addColumn<QStringList>("identify");
        QTest::addColumn<QByteArray>("said");
        QTest::newRow("200 characters") << QByteArray("scan " + QByteArray(200, 'A')) << QStringList()
                                        << QByteArray("is 200 characters long; an identifier has at most 25");
        QTest::newRow("noise") << QByteArray("scan " + QByteArray(300, 'x') + "\\xff\\xfe") << QStringList()
                               << QByteArray("a line longer than 256 bytes dropped");
        QTest::newRow("binary") << QByteArray("scan \\x1b\\x80\\x03") << QStringList()
                                << QByteArray("is not printable ASCII (0x1b)");
        QTest::newRow("NUL") << QByteArray("scan AB\\x00CD") << QStringList() << QByteArray("(0x00)");
        QTest::newRow("comma") << QByteArray() << QStringList{"A,B"} << QByteArray("holds a comma");
        QTest::newRow("part 5") << QByteArray() << QStringList{"X", "--part", "5"} << QByteArray("--part takes 1 to 4");
    }
    void badIdentifiers()
    {
        QFETCH(QByteArray, scanned);
        QFETCH(QStringList, identify);
        QFETCH(QByteArray, said);
        const QString name = QString("bad-%1").arg(QTest::currentDataTag()).replace(' ', '-');
        DSimulatedTool tool;
        QVERIFY(tool.start({"--event-period", "0", "--scanner-link", m_dir.filePath(name + ".scan")}));
        QScopedPointer<DTimedHytorc> hytorcd(station(&tool, name, QByteArray()));
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("listening") == 1; }, 20000));
        tool.say("scan GOOD-1");
        QVERIFY(QTest::qWaitFor([&] { return hytorcd->count("identifier part 1 is GOOD-1") == 1; }, 10000));
        if (identify.isEmpty()) {
            tool.say(scanned);
        } else {
            DTimedHytorc person(QStringList{"identify"} + identify + QStringList{"--journal", m_dir.filePath(name + ".db")});
            QVERIFY(person.waitForEnd(10000) && person.process.exitCode() != 0);
            QVERIFY2(person.errText().contains(said), person.errText().constData());
        }
        QVERIFY2(QTest::qWaitFor([&] { return !identify.isEmpty() || hytorcd->count(said) == 1; }, 5000), hytorcd->errText());
        tool.say("event");
        QVERIFY(QTest::qWaitFor([&] { return exported(m_dir.filePath(name + ".db")).size() == 1; }, 10000));
        QCOMPARE(exported(m_dir.filePath(name + ".db")).first().value("identifier").toString(), QStringLiteral("GOOD-1"));
    }
};

QTEST_GUILESS_MAIN(TestStationPart)
#include "test_station_part.moc"
