// hytorcd and a real mosquitto: every result arrives field for field and in order through a
// broker outage and a SIGKILL of hytorcd, over TCP and over TLS with certificates of the
// test's own; delivery resumes within seconds of a 60 s outage; a replay request gets the
// journal's rows again and the ids it no longer holds; a broker that never answers does not
// hold up the tool; a refused login and wrong settings are said as such.
#include "d_hytorc_process.h"
#include "d_mosquitto_broker.h"
#include "d_result_journal.h"
#include "d_result_record.h"
#include "d_simulated_tool.h"

#include <QSignalSpy>
#include <QtTest>

#include <memory>

namespace {

const QByteArray c_results = "hytorc/T1/results";
const QByteArray c_status = "hytorc/T1/status";

// mosquitto_sub as a child (line-buffered, or its SUBACK line would wait for the next message).
struct DWatcher {
    explicit DWatcher(const QStringList& arguments)
    {
        QObject::connect(&process, &QProcess::readyReadStandardOutput, [this] {
            while (process.canReadLine())
                lines << process.readLine().trimmed();
        });
        process.start(QStringLiteral("stdbuf"), QStringList{"-oL", "mosquitto_sub", "-v"} + arguments);
    }
    ~DWatcher() { process.kill(), process.waitForFinished(); }
    // The payloads of `topic`, in the order received; "" when there are not that many.
    QList<QByteArray> payloads(const QByteArray& topic) const
    {
        QList<QByteArray> all;
        for (const QByteArray& line : lines)
            line.startsWith(topic + ' ') ? all << line.mid(topic.size() + 1) : all;
        return all;
    }
    QByteArray last(const QByteArray& topic) const { return payloads(topic).isEmpty() ? QByteArray() : payloads(topic).last(); }
    QProcess process;
    QList<QByteArray> lines;
};

// The journal's rows as they are published, by id.
QMap<qint64, QByteArray> journalLines(const QString& path)
{
    DResultJournal journal;
    QString error;
    QMap<qint64, QByteArray> lines;
    journal.open(path, DResultJournal::CeReader, &error) && journal.forEach({}, [&](const QVariantMap& row) {
        lines.insert(row.value("id").toLongLong(), DResultRecord::jsonLine(row, DResultRecord::journalKeys()));
        return true;
    }, &error);
    return lines;
}

qint64 idOf(const QByteArray& payload) { return QJsonDocument::fromJson(payload).object().value("id").toVariant().toLongLong(); }

// An authority, and a server and a client certificate it signed, both for 127.0.0.1.
bool makeCertificates(const QString& folder)
{
    QProcess shell;
    shell.setWorkingDirectory(folder);
    shell.start(QStringLiteral("sh"), {"-ec", "key='-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes'; echo subjectAltName=IP:127.0.0.1 >san.cnf\n"
        "openssl req -x509 $key -days 1 -subj /CN=authority -keyout ca.key -out ca.crt\n"
        "for n in server client; do openssl req $key -subj /CN=127.0.0.1 -keyout $n.key -out $n.csr\n"
        "openssl x509 -req -in $n.csr -CA ca.crt -CAkey ca.key -CAcreateserial -days 1 -extfile san.cnf -out $n.crt; done"});
    return shell.waitForFinished(30000) && shell.exitCode() == 0;
}

} // namespace

class TestMqtt : public QObject
{
    Q_OBJECT

private slots:
    void delivery_data()
    {
        QTest::addColumn<bool>("tls");
        QTest::newRow("mqtt") << false;
        QTest::newRow("mqtts, certificates both ways") << true;
    }

    void delivery()
    {
        QFETCH(bool, tls);
        QTemporaryDir dir;
        const QString d = dir.path();
        const auto tlsFiles = [&](const QStringList& options) {
            QStringList arguments;
            for (int i = 0; tls && i < options.size(); ++i)
                arguments << options.at(i) << d + QStringList{"/ca.crt", "/client.crt", "/client.key"}.at(i);
            return arguments;
        };
        QVERIFY(!tls || makeCertificates(d));
        DMosquittoBroker broker(d, tls ? QStringLiteral("cafile %1/ca.crt\ncertfile %1/server.crt\nkeyfile %1/server.key\n"
                                                        "require_certificate true\n").arg(d).toUtf8() : QByteArray());
        QVERIFY(broker.start());
        const QStringList at = QStringList{"-h", "127.0.0.1", "-p", QString::number(broker.port())} + tlsFiles({"--cafile", "--cert", "--key"});
        // A consumer of the plant: a persistent session, kept by the broker over its restart.
        DWatcher watcher(at + QStringList{"-d", "-q", "1", "-c", "-i", "watcher", "-t", "hytorc/T1/#"});
        QVERIFY(QTest::qWaitFor([&] { return watcher.lines.contains("Client watcher received SUBACK"); }, 10000));

        DSimulatedTool tool;
        QVERIFY(tool.start({"--baud", "0"}));
        const QString journal = d + "/r.db";
        const QStringList arguments = QStringList{"--device", tool.linkPath(), "--journal", journal, "--station", "T1", "--mqtt",
            QStringLiteral("%1://127.0.0.1:%2").arg(tls ? "mqtts" : "mqtt").arg(broker.port())} + tlsFiles({"--mqtt-ca", "--mqtt-cert", "--mqtt-key"});
        auto daemon = std::make_unique<DTimedHytorc>(arguments, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY2(QTest::qWaitFor([&] { return watcher.last(c_status).contains("\"state\":\"online\",\"tool\":\"connected\""); }, 20000),
                 daemon->errText().constData());
        const auto report = [&](int count, qint64 lastId) {
            for (int i = 0; i < count; ++i)
                tool.say("event");
            return QTest::qWaitFor([&] { return journalLines(journal).contains(lastId); }, 10000);
        };
        const auto delivered = [&](qint64 id) { return QTest::qWaitFor([&] { return idOf(watcher.last(c_results)) == id; }, 30000); };
        QVERIFY(report(3, 3) && delivered(3));
        DWatcher newcomer(at + QStringList{"-C", "2", "-t", c_status, "-t", "hytorc/T1/tool"});
        QVERIFY(newcomer.process.waitForFinished(10000));
        QCOMPARE(newcomer.last(c_status), watcher.last(c_status));
        QVERIFY(newcomer.last("hytorc/T1/tool").contains("\"serial\":\"HYT24A0137\""));

        broker.stop();
        QVERIFY(report(3, 6) && broker.start());
        QVERIFY2(delivered(6), daemon->errText().constData());
        broker.stop();
        QVERIFY(report(3, 9));
        ::kill(pid_t(daemon->process.processId()), SIGKILL);
        daemon = std::make_unique<DTimedHytorc>(arguments, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY(broker.start());
        QVERIFY2(delivered(9) && daemon->errText().contains("backlog of 3 result(s) being sent"), daemon->errText().constData());
        ::kill(pid_t(daemon->process.processId()), SIGKILL);
        QVERIFY(QTest::qWaitFor([&] { return watcher.last(c_status).contains("\"state\":\"offline\""); }, 10000));

        // First sight of each id in journal order, every copy the journal's line byte for byte.
        const QMap<qint64, QByteArray> lines = journalLines(journal);
        qint64 newest = 0;
        for (const QByteArray& payload : watcher.payloads(c_results)) {
            QVERIFY2(idOf(payload) >= 1 && idOf(payload) <= newest + 1, payload.constData());
            QCOMPARE(payload, lines.value(idOf(payload)));
            newest = qMax(newest, idOf(payload));
        }
        QCOMPARE(newest, qint64(9));
    }

    void replay_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QList<qint64>>("sent");
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("held rows") << QByteArray("{\"from\":2,\"to\":4}") << QList<qint64>{2, 3, 4}
                                   << QByteArray("{\"from\":2,\"missing\":[],\"to\":4}");
        QTest::newRow("pruned rows") << QByteArray("{\"from\":3,\"to\":11}") << QList<qint64>{3, 4, 10, 11}
                                     << QByteArray("{\"from\":3,\"missing\":[[5,9]],\"to\":11}");
        QTest::newRow("past the last id") << QByteArray("{\"from\":11,\"to\":1000000}") << QList<qint64>{11, 12}
                                          << QByteArray("{\"from\":11,\"missing\":[],\"to\":12}");
        QTest::newRow("not a request") << QByteArray("{\"from\":\"1\"}") << QList<qint64>{} << QByteArray();
    }

    // A consumer's replay request: the journal's rows again, byte for byte, then the ids it no longer holds.
    void replay()
    {
        QFETCH(QByteArray, request);
        QFETCH(QList<qint64>, sent);
        QFETCH(QByteArray, answer);
        QTemporaryDir dir;
        DMosquittoBroker broker(dir.path());
        QVERIFY(broker.start());
        const QStringList at{"-h", "127.0.0.1", "-p", QString::number(broker.port())};
        DSimulatedTool tool;
        QVERIFY(tool.start({"--baud", "0"}));
        const QString journal = dir.filePath("r.db");
        DTimedHytorc daemon({"--device", tool.linkPath(), "--journal", journal, "--station", "T1", "--op-port", "0", "--mqtt",
                             QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port())}, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("listening") == 1 && daemon.count("mqtt: connected") == 1; }, 20000));
        for (int i = 0; i < 12; ++i)
            tool.say("event");
        QVERIFY(QTest::qWaitFor([&] { return journalLines(journal).size() == 12; }, 10000));
        QProcess::execute("sqlite3", {journal, ".timeout 5000", "DELETE FROM results WHERE id BETWEEN 5 AND 9"});
        QTest::qWait(1000);  // the live results go first
        DWatcher watcher(at + QStringList{"-d", "-q", "1", "-i", "replay", "-t", c_results, "-t", "hytorc/T1/replayed"});
        QVERIFY(QTest::qWaitFor([&] { return watcher.lines.contains("Client replay received SUBACK"); }, 10000));
        QProcess::execute("mosquitto_pub", at + QStringList{"-q", "1", "-t", "hytorc/T1/replay", "-m", request});
        if (answer.isEmpty()) {
            QVERIFY2(QTest::qWaitFor([&] { return daemon.count("mqtt: replay request ignored") == 1; }, 10000), daemon.errText().constData());
            return;
        }
        QVERIFY2(QTest::qWaitFor([&] { return !watcher.last("hytorc/T1/replayed").isEmpty(); }, 10000), daemon.errText().constData());
        QCOMPARE(watcher.last("hytorc/T1/replayed"), answer);
        const QMap<qint64, QByteArray> lines = journalLines(journal);
        QList<qint64> ids;
        for (const QByteArray& payload : watcher.payloads(c_results)) {
            QCOMPARE(payload, lines.value(idOf(payload)));
            ids << idOf(payload);
        }
        QCOMPARE(ids, sent);
    }

    // A listener on ::1 that accepts and says nothing, over one given-up attempt and the next.
    void unansweredBroker()
    {
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHostIPv6));
        QSignalSpy accepted(&silent, &QTcpServer::newConnection);
        QTemporaryDir dir;
        DSimulatedTool tool;
        QVERIFY(tool.start({"--baud", "0"}));
        DTimedHytorc daemon({"--device", tool.linkPath(), "--journal", dir.filePath("r.db"), "--station", "T1", "--mqtt",
                             QStringLiteral("mqtt://[::1]:%1").arg(silent.serverPort())}, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("listening") > 0; }, 20000));
        QList<qint64> sent;
        for (int i = 0; i < 24; ++i, QTest::qWait(500))
            sent << QDateTime::currentMSecsSinceEpoch(), tool.say("event");
        QVERIFY(QTest::qWaitFor([&] { return journalLines(dir.filePath("r.db")).size() == sent.size(); }, 10000));
        const QMap<qint64, QByteArray> lines = journalLines(dir.filePath("r.db"));
        for (int i = 0; i < sent.size(); ++i) {
            const QDateTime received = QDateTime::fromString(QJsonDocument::fromJson(lines.value(i + 1))["receivedAt"].toString(), Qt::ISODateWithMs);
            QVERIFY2(received.toMSecsSinceEpoch() - sent.at(i) < 1000, qPrintable(received.toString(Qt::ISODateWithMs)));
        }
        QVERIFY(accepted.size() >= 2 && daemon.errText().contains("(no answer within 10 s)"));
    }

    // The broker away for 60 s: a result journaled meanwhile reaches a subscriber within 5 s of its return.
    void outage()
    {
        QTemporaryDir dir;
        DMosquittoBroker broker(dir.path());
        QVERIFY(broker.start());
        const QStringList at{"-h", "127.0.0.1", "-p", QString::number(broker.port())};
        DWatcher watcher(at + QStringList{"-d", "-q", "1", "-c", "-i", "outage", "-t", c_results});
        QVERIFY(QTest::qWaitFor([&] { return watcher.lines.contains("Client outage received SUBACK"); }, 10000));
        DSimulatedTool tool;
        QVERIFY(tool.start({"--baud", "0"}));
        DTimedHytorc daemon({"--device", tool.linkPath(), "--journal", dir.filePath("r.db"), "--station", "T1", "--op-port", "0",
                             "--mqtt", QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port())}, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("mqtt: connected") == 1 && daemon.count("listening") == 1; }, 20000));
        broker.stop();
        tool.say("event");
        QTest::qWait(60000);
        QElapsedTimer back;
        back.start();
        QVERIFY(broker.start());
        QVERIFY2(QTest::qWaitFor([&] { return idOf(watcher.last(c_results)) == 1; }, 15000), daemon.errText().constData());
        QVERIFY2(back.elapsed() <= 5000, qPrintable(QString::number(back.elapsed())));
    }

    // A wrong password is said as a refused login, not as an unreachable broker.
    void refusedLogin()
    {
        QTemporaryDir dir;
        QVERIFY(QProcess::execute("mosquitto_passwd", {"-c", "-b", dir.filePath("users"), "station", "right"}) == 0);
        DMosquittoBroker broker(dir.path(), "password_file " + dir.filePath("users").toUtf8() + '\n');
        QVERIFY(broker.start());
        QFile password(dir.filePath("password"));
        QVERIFY(password.open(QIODevice::WriteOnly) && password.write("wrong\n") && password.flush());
        DTimedHytorc daemon({"--device", "/dev/null", "--journal", dir.filePath("r.db"), "--op-port", "0", "--mqtt",
                             QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port()), "--mqtt-user", "station",
                             "--mqtt-password-file", password.fileName()}, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY2(QTest::qWaitFor([&] { return daemon.count("refused the login (not authorised)") == 1; }, 15000), daemon.errText().constData());
        QCOMPARE(daemon.count("cannot reach the broker"), 0);
    }

    void refusedSettings_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("said");
        const QString file = QCoreApplication::applicationFilePath();
        QTest::newRow("not MQTT") << QStringList{"--mqtt", "http://127.0.0.1:1883"} << "allowed: mqtt://host:port or mqtts://host:port";
        QTest::newRow("TLS files, no TLS") << QStringList{"--mqtt", "mqtt://[::1]", "--mqtt-ca", file} << "need an mqtts:// broker, not mqtt://[::1]:1883";
        QTest::newRow("no key") << QStringList{"--mqtt", "mqtts://127.0.0.1", "--mqtt-cert", file} << "mqtt-cert and mqtt-key go together";
        QTest::newRow("no password") << QStringList{"--mqtt", "mqtt://127.0.0.1", "--mqtt-user", "u"} << "mqtt-user and mqtt-password-file go";
        QTest::newRow("password given") << QStringList{"--mqtt-password", "secret"} << "Unknown option 'mqtt-password'";
        QTest::newRow("wildcard topic") << QStringList{"--mqtt-topic", "plant/#"} << "--mqtt-topic: \"plant/#\" is not allowed";
    }

    void refusedSettings()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, said);
        QTemporaryDir dir;
        DTimedHytorc daemon(arguments + QStringList{"--device", "/dev/null", "--journal", dir.filePath("r.db")},
                            QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY(daemon.waitForEnd(20000) && daemon.process.exitCode() == 2);
        QVERIFY2(daemon.errText().contains(said.toUtf8()), daemon.errText().constData());
    }
};

QTEST_GUILESS_MAIN(TestMqtt)
#include "test_mqtt.moc"
