// hytorc-collector between real hytorcd stations (on simulators), a real mosquitto and a real
// PostgreSQL: every journaled result in the database once, field for field, through a SIGKILL of
// the collector, 20 s without the database, collectors started late in a share group, a pruned
// journal; bad messages skipped with one line each, nothing stored wrongly; wrong settings refused.
#include "d_hytorc_process.h"
#include "d_mosquitto_broker.h"
#include "d_postgres_server.h"
#include "d_simulated_tool.h"

#include <QRegularExpression>
#include <QtTest>

#include <memory>

namespace {

QByteArray exported(const QStringList& arguments)
{
    QProcess hytorc;
    hytorc.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/bin/hytorc"),
                 arguments.first() == "spc" ? arguments : QStringList{"results"} + arguments);
    hytorc.waitForFinished(30000);
    return hytorc.readAllStandardOutput();
}

// A hytorcd on a simulator that reports a result every `periodMs`.
struct DStation {
    DStation(const QString& name, const QString& folder, quint16 broker, int periodMs)
        : journal(folder + '/' + name + ".db")
    {
        tool.start({"--baud", "0", "--event-period", QString::number(periodMs)});
        daemon = std::make_unique<DTimedHytorc>(QStringList{"--device", tool.linkPath(), "--journal", journal, "--station", name,
                                                            "--op-port", "0", "--mqtt", QStringLiteral("mqtt://127.0.0.1:%1").arg(broker)},
                                                QProcessEnvironment::systemEnvironment(), "hytorcd");
        this->name = name;
    }
    // The journal's export and the database's, the same bytes; their SPC figures too.
    bool collected(const DPostgresServer& db, const QString& database) const
    {
        const QByteArray journalRows = exported({"--journal", journal});
        const QStringList plant{"--postgres", db.connInfo(database), "--station", name};
        return !journalRows.isEmpty() && journalRows == exported(plant)
            && exported({"spc", "--format", "json", "--journal", journal}) == exported(QStringList{"spc", "--format", "json"} + plant);
    }
    QString name;
    QString journal;
    DSimulatedTool tool;
    std::unique_ptr<DTimedHytorc> daemon;
};

std::unique_ptr<DTimedHytorc> collector(const DPostgresServer& db, const QString& database, quint16 broker, const QStringList& more = {})
{
    return std::make_unique<DTimedHytorc>(QStringList{"--mqtt", QStringLiteral("mqtt://127.0.0.1:%1").arg(broker), "--postgres",
                                                      db.connInfo(database), "--grace", "2"} + more,
                                          QProcessEnvironment::systemEnvironment(), "hytorc-collector");
}

qint64 stored(const DTimedHytorc& process)
{
    const QRegularExpressionMatch match = QRegularExpression("stopped: (\\d+) result").match(QString::fromUtf8(process.errText()));
    return match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

} // namespace

class TestCollector : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!DPostgresServer::available())
            QSKIP("PostgreSQL 15 is not installed (apt-get install postgresql; scripts/setup.sh does)");
        QVERIFY(m_db.initialise() && m_db.start());
        QVERIFY(m_broker.start());
    }

    void throughFaults()
    {
        m_db.query("CREATE DATABASE faults");
        QTemporaryDir dir;
        std::vector<std::unique_ptr<DStation>> stations;
        for (const char* name : {"A1", "A2", "A3"})
            stations.push_back(std::make_unique<DStation>(name, dir.path(), m_broker.port(), 100));
        const auto count = [&] { return m_db.query("SELECT count(*) FROM results", "faults").toLongLong(); };
        auto running = collector(m_db, "faults", m_broker.port(), {"--mqtt-client-id", "c1"});
        QVERIFY2(QTest::qWaitFor([&] { return count() > 60; }, 30000), running->errText().constData());
        ::kill(pid_t(running->process.processId()), SIGKILL);
        QTest::qWait(1000);
        running = collector(m_db, "faults", m_broker.port(), {"--mqtt-client-id", "c1"});
        const qint64 before = count();
        QVERIFY(QTest::qWaitFor([&] { return count() > before + 30; }, 20000));
        m_db.stop();
        QTest::qWait(20000);
        QVERIFY(m_db.start());
        QVERIFY2(QTest::qWaitFor([&] { return running->count("postgres: back") == 1; }, 10000), running->errText().constData());
        for (auto& station : stations)
            station->tool.say("quiet");
        for (auto& station : stations)
            QVERIFY2(QTest::qWaitFor([&] { return station->collected(m_db, "faults"); }, 60000), running->errText().constData());
        DTimedHytorc audit({"--audit", "--postgres", m_db.connInfo("faults")}, QProcessEnvironment::systemEnvironment(), "hytorc-collector");
        QVERIFY(audit.waitForEnd(30000));
        QCOMPARE(audit.process.exitCode(), 0);
        QCOMPARE(audit.out.size(), 3);
    }

    void lateSharedAndPruned()
    {
        m_db.query("CREATE DATABASE late");
        QTemporaryDir dir;
        DStation pruned("P1", dir.path(), m_broker.port(), 100);
        DStation whole("P2", dir.path(), m_broker.port(), 100);
        QVERIFY(QTest::qWaitFor([&] { return exported({"--journal", pruned.journal}).count('\n') >= 20; }, 30000));
        QProcess sqlite;
        sqlite.start("sqlite3", {pruned.journal, ".timeout 5000", "DELETE FROM results WHERE id BETWEEN 5 AND 9"});
        QVERIFY(sqlite.waitForFinished(10000) && sqlite.exitCode() == 0);
        auto first = collector(m_db, "late", m_broker.port(), {"--share", "g", "--mqtt-client-id", "s1"});
        auto second = collector(m_db, "late", m_broker.port(), {"--share", "g", "--mqtt-client-id", "s2"});
        // A live result shows each station's hole; then the stations stop and the replay fills it.
        QVERIFY(QTest::qWaitFor([&] { return m_db.query("SELECT count(DISTINCT station) FROM results", "late") == "2"; }, 30000));
        pruned.tool.say("quiet");
        whole.tool.say("quiet");
        QVERIFY2(QTest::qWaitFor([&] { return pruned.collected(m_db, "late") && whole.collected(m_db, "late"); }, 60000),
                 first->errText() + second->errText());
        DTimedHytorc audit({"--audit", "--postgres", m_db.connInfo("late")}, QProcessEnvironment::systemEnvironment(), "hytorc-collector");
        QVERIFY(audit.waitForEnd(30000) && audit.process.exitCode() == 0);
        QVERIFY2(audit.out.value(0).text.contains("0 gap(s) open") && audit.out.value(0).text.endsWith("1 unrecoverable (5 id(s))"),
                 audit.out.value(0).text.constData());
        // Both took a share, and between them each result was written once.
        for (auto* each : {first.get(), second.get()}) {
            ::kill(pid_t(each->process.processId()), SIGTERM);
            QVERIFY(each->waitForEnd(10000));
        }
        QVERIFY(stored(*first) > 0 && stored(*second) > 0);
        QCOMPARE(stored(*first) + stored(*second), m_db.query("SELECT count(*) FROM results", "late").toLongLong());
    }

    void badInput_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QByteArray>("said");
        const QByteArray at = "\"receivedAt\":\"2026-11-23T12:31:05.855Z\"";
        QTest::newRow("not JSON") << QByteArray("hello") << QByteArray("not a JSON object");
        QTest::newRow("missing keys") << QByteArray("{\"id\":1}") << QByteArray("no \"receivedAt\"");
        QTest::newRow("id not a number") << "{\"id\":\"7\"," + at + ",\"station\":\"B1\"}" << QByteArray("\"id\" is not a whole number");
        QTest::newRow("10 MB") << QByteArray(10 * 1024 * 1024, 'x') << QByteArray("a payload of 10485760 bytes");
        QTest::newRow("SQL in the station") << "{\"id\":2," + at + ",\"station\":\"B1'); DROP TABLE results; --\"}"
                                            << QByteArray("\"station\" is not a station name");
        QTest::newRow("SQL in a value is a value") << "{\"id\":3," + at + ",\"station\":\"B1\",\"jobId\":\"'); DROP TABLE results; --\"}"
                                                   << QByteArray();
    }

    void badInput()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QByteArray, said);
        if (!m_bad) {
            m_db.query("CREATE DATABASE bad");
            m_bad = collector(m_db, "bad", m_broker.port(), {"--mqtt-client-id", "bad"});
            QVERIFY(QTest::qWaitFor([&] { return m_bad->count("mqtt: connected") == 1; }, 20000));
        }
        QTemporaryFile file;
        QVERIFY(file.open() && file.write(payload) == payload.size() && file.flush());
        const int before = m_bad->count("skipped a message on hytorc/B1/results");
        QProcess::execute("mosquitto_pub", {"-h", "127.0.0.1", "-p", QString::number(m_broker.port()), "-q", "1",
                                            "-t", "hytorc/B1/results", "-f", file.fileName()});
        if (said.isEmpty()) {
            QVERIFY(QTest::qWaitFor([&] { return !m_db.query("SELECT \"jobId\" FROM results", "bad").isEmpty(); }, 10000));
            QCOMPARE(m_db.query("SELECT station || ' ' || id || ' ' || \"jobId\" FROM results", "bad"),
                     QByteArray("B1 3 '); DROP TABLE results; --"));
            return;
        }
        QVERIFY2(QTest::qWaitFor([&] { return m_bad->count("skipped a message on hytorc/B1/results") == before + 1; }, 10000),
                 m_bad->errText().constData());
        QVERIFY2(m_bad->err.last().text.contains(said) && m_bad->err.last().text.size() < 300, m_bad->err.last().text.constData());
        QCOMPARE(m_db.query("SELECT count(*) FROM results", "bad"), QByteArray("0"));
    }

    void refusedSettings_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("said");
        const QStringList broker{"--mqtt", "mqtt://127.0.0.1:1"};
        QTest::newRow("no database") << "hytorc-collector" << broker << QByteArray("--postgres is needed");
        QTest::newRow("password on the command line") << "hytorc-collector" << broker + QStringList{"--postgres", "host=/tmp password=x"}
                                                      << QByteArray("the connection string holds a password");
        QTest::newRow("no broker") << "hytorc-collector" << QStringList{"--postgres", "host=/tmp"} << QByteArray("--mqtt is needed");
        QTest::newRow("not a results topic") << "hytorc-collector" << broker + QStringList{"--postgres", "host=/tmp", "--topic", "a/#"}
                                             << QByteArray("--topic: \"a/#\" is not allowed");
        QTest::newRow("station without database") << "hytorc" << QStringList{"results", "--station", "T1"}
                                                  << QByteArray("--station goes with --postgres");
        QTest::newRow("database and journal") << "hytorc" << QStringList{"results", "--postgres", "host=/tmp", "--journal", "r.db"}
                                              << QByteArray("in place of --journal");
    }

    void refusedSettings()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, said);
        DTimedHytorc process(arguments, QProcessEnvironment::systemEnvironment(), program);
        QVERIFY(process.waitForEnd(10000));
        QCOMPARE(process.process.exitCode(), 2);
        QVERIFY2(process.err.size() == 1 && process.err.first().text.contains(said), process.errText().constData());
    }

    void cleanupTestCase() { m_bad.reset(); }

private:
    DPostgresServer m_db;
    QTemporaryDir m_brokerFolder;
    DMosquittoBroker m_broker{m_brokerFolder.path()};
    std::unique_ptr<DTimedHytorc> m_bad;
};

QTEST_GUILESS_MAIN(TestCollector)
#include "test_collector.moc"
