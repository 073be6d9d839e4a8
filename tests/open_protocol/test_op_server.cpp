// hytorcd's Open Protocol server as a client on 127.0.0.1 meets it: raw messages, what the
// third-party client has no function for, and bad input. The real service runs over the
// simulator; every reply is checked byte for byte (NUL shown as '|'), and every client that
// is closed for a fault leaves exactly one line on hytorcd's stderr.
#include "d_hytorc_process.h"
#include "d_simulated_tool.h"

#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <memory>

namespace {

// `flag` is header byte 12: '1' asks for pushed data without acknowledgements.
QByteArray msg(const char* mid, const QByteArray& data = QByteArray(), const char* revision = "001", char flag = ' ')
{
    const QByteArray body = QByteArray(mid) + revision + flag + QByteArray(8, ' ') + data;
    return QByteArray::number(body.size() + 4).rightJustified(4, '0') + body + '\0';
}

const QByteArray c_start = msg("0001");
// The answer to 0001, and to 0004/0005 of a MID and code.
const QString c_started = QStringLiteral("00570002001 {9}010001020103T1 {23}\\|");
QString accepted(const char* mid) { return QStringLiteral("00240005001 {9}%1\\|").arg(mid); }
QString refused(const char* mid, const char* code) { return QStringLiteral("00260004001 {9}%1%2\\|").arg(mid, code); }
const QString c_timestamp = QStringLiteral("\\d{4}-\\d\\d-\\d\\d:\\d\\d:\\d\\d:\\d\\d");
// The first result, of program 3 (800 N·m) as the rows before it leave the tool: what has no
// source here (VIN, job, batch, torque and angle statuses and limits, angle) is spaces, batch
// status 2 (not used).
const QString c_result = "02310061001 {9}010001020103T1 {23}04 {25}05  0600307 {4}08 {4}09[01]10 11 12 {6}13 {6}14080000"
                         "150\\d{5}16 {5}17 {5}180000019 {5}20" + c_timestamp + "21" + c_timestamp + "222230000000001\\|";
const QString c_anyResult = QStringLiteral("02310061001 {9}[^|]{211}\\|");
QString selected(const char* progId) { return QStringLiteral("00420015001 {9}%1%2\\|").arg(progId, c_timestamp); }

} // namespace

class TestOpServer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_tool.start({"--reopen-after=2000"}));
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        m_port = probe.serverPort();
        probe.close();
        m_daemon = std::make_unique<DTimedHytorc>(
            QStringList{"--device", m_tool.linkPath(), "--journal", m_dir.filePath("r.db"), "--station", "T1",
                        "--op-port", QString::number(m_port), "--op-clients", "2", "--op-idle", "5",
                        "--op-ack-timeout", "1"},
            QProcessEnvironment::systemEnvironment(), "hytorcd");
        QVERIFY2(QTest::qWaitFor([this] { return m_daemon->count("listening") > 0; }, 20000), m_daemon->errText());
    }

    void cleanupTestCase() { QCOMPARE(m_daemon->count("result lost"), 0); }

    void exchange_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QByteArray>("tool");  // told to the simulator after `sent`; "drop" before connecting; "events" every 2 s
        QTest::addColumn<QByteArray>("reply");    // sent once a 0061 has come
        QTest::addColumn<QByteArray>("trickle");  // sent one byte every 200 ms after `sent`, not used up before the answer
        QTest::addColumn<int>("holders");    // other clients connected meanwhile
        QTest::addColumn<QString>("answer");  // all that comes back, as a pattern
        QTest::addColumn<bool>("closed");
        QTest::addColumn<int>("logLines");

        const QByteArray none;
        QTest::newRow("programs, in one write with NULs between") << c_start + QByteArray(3, '\0') + msg("0010") << none << none
            << none << 0 << c_started + "00380011001 {9}005001002003004005\\|" << false << 0;
        QTest::newRow("program 2, padded header, spaced number; limits unknown: spaces")
            << c_start + "0027001200100101        002" + '\0' + msg("0012", "009") << none << none << none << 0
            << c_started + "01040013001 {9}0100202P2 {23}031040005 {6}06 {6}0702505008 {5}09 {5}1000030\\|"
               + refused("0012", "02") << false << 0;
        QTest::newRow("tool identity") << c_start + msg("0040") << none << none << none << 0
            << c_started + "00810041001 {9}01HYT24A0137    02\\d{10}032025-09-14:00:00:0004T1        \\|" << false << 0;
        QTest::newRow("0014: 0005 then the current 0015; 0018: its 0005 before the 0015")
            << c_start + msg("0014") + msg("0014") + msg("0018", "   3") + msg("0018", "7") + msg("0017") + msg("0017")
            << none << none << none << 0
            << c_started + accepted("0014") + selected("00[13]") + refused("0014", "13") + accepted("0018") + selected("003")
               + refused("0018", "02") + accepted("0017") + refused("0017", "14") << false << 0;
        QTest::newRow("unknown MID, wrong revision, 0001 twice, blank revision")
            << c_start + msg("0099") + msg("0010", {}, "002") + msg("0064", "0", "008") + c_start + msg("9999", {}, "   ")
            << none << none << none << 0 << c_started + refused("0099", "99") + refused("0010", "97") + refused("0064", "97")
               + refused("0001", "96") + "00209999001 {9}\\|" << false << 0;
        QTest::newRow("an unanswered result sent 4 times, then closed") << c_start + msg("0060") + msg("0060")
            << QByteArray("event") << none << none << 0
            << c_started + accepted("0060") + refused("0060", "09") + c_result + c_result + c_result + c_result << true << 1;
        QTest::newRow("acknowledged by 0005") << c_start + msg("0060") << QByteArray("event") << msg("0005", "0061") << none << 0
            << c_started + accepted("0060") + c_anyResult << false << 0;
        QTest::newRow("no-ack flag: sent once") << c_start + msg("0060", {}, "001", '1') << QByteArray("event") << none << none << 0
            << c_started + accepted("0060") + c_anyResult << false << 0;
        QTest::newRow("no-ack reader kept while results flow") << c_start + msg("0060", {}, "001", '1') << QByteArray("events")
            << none << none << 0 << c_started + accepted("0060") + "(?:" + c_anyResult + "){4,}" << false << 0;
        QTest::newRow("latest and unknown old results") << c_start + msg("0064", "0000000000") + msg("0064", "99")
            << none << none << none << 0 << c_started + "01180065001 {9}010000000\\d\\d\\d02 {25}0300304 {4}05[01]06 07 "
               "08\\d{6}09 {5}10" + c_timestamp + "112\\|" + refused("0064", "15") << false << 0;
        QTest::newRow("identifier, its 0052 after the 0005; subscriptions twice")
            << c_start + msg("0051", {}, "002") + msg("0051") + msg("0050", "VIN-42") + msg("0053") + msg("0054") + msg("0054")
            << none << none << none << 0
            << c_started + accepted("0051") + refused("0051", "06") + accepted("0050") + "01280052002 {9}01VIN-42 {19}02 {25}03 {25}04 {25}\\|"
               + accepted("0054") + refused("0054", "07") << false << 0;
        QTest::newRow("batch size, reset, lock at batch done")
            << c_start + msg("0019", "00305") + msg("0019", "003") + msg("0019", "00300") + msg("0020", "001") + msg("0020", "x")
               + msg("0021") + msg("0021") + msg("0023") + msg("0024") + msg("0024")
            << none << none << none << 0
            << c_started + accepted("0019") + refused("0019", "01") + refused("0019", "01") + refused("0020", "04")
               + refused("0020", "01") + accepted("0021") + "00210022001 {9}0\\|" + refused("0021", "90") + accepted("0023")
               + accepted("0024") + refused("0024", "91") << false << 2;
        QTest::newRow("time read, time set refused, job abort accepted") << c_start + msg("0080") + msg("0082", "2020-01-01:00:00:00")
            + msg("0127") << none << none << none << 0
            << c_started + "00390081001 {9}" + c_timestamp + "\\|" + refused("0082", "79") + accepted("0127") << false << 1;
        QTest::newRow("0003 ends the session") << c_start + msg("0003") + msg("0010") << none << none << none << 0
            << c_started + accepted("0003") << true << 0;
        QTest::newRow("MID before 0001") << msg("0010") << none << none << none << 0 << QString() << true << 1;
        QTest::newRow("length not digits") << c_start + "00x40001001         " + '\0' << none << none << none << 0 << c_started
            << true << 1;
        QTest::newRow("length below 20") << QByteArray("0019000100100000000\0", 20) << none << none << none << 0 << QString()
            << true << 1;
        QTest::newRow("not ended where its length says") << QByteArray("00200001001         X") << none << none << none << 0
            << QString() << true << 1;
        QTest::newRow("ended before its length says") << QByteArray("00300001001         \0", 21) << none << none << none << 0
            << QString() << true << 1;
        QTest::newRow("gone silent") << QByteArray() << none << none << none << 0 << QString() << true << 1;
        QTest::newRow("bytes, never a whole message, after 0001") << c_start << none << none << "99999999001" + QByteArray(49, ' ') << 0
            << c_started << true << 1;
        QTest::newRow("a NUL now and then, never 0001") << QByteArray(1, '\0') << none << none << QByteArray(60, '\0') << 0
            << QString() << true << 1;
        QTest::newRow("link down: tool commands refused, the alarm active") << c_start + msg("0070", {}, "002") + msg("0070")
            + msg("0018", "001") + msg("0042") + msg("0043") << QByteArray("drop") << none << none << 0
            << c_started + accepted("0070") + "00570076002 {9}01102E101 03104005" + c_timestamp + "\\|" + refused("0070", "11")
               + refused("0018", "27") + refused("0042", "27") + refused("0043", "27") << false << 0;
        // Last: a refusal's counted line may come a second later, where only the flood counts lines.
        QTest::newRow("one client too many: 0004 error 16") << c_start << none << none << none << 2 << refused("0001", "16")
            << true << 1;
    }

    void exchange()
    {
        QFETCH(QByteArray, sent);
        QFETCH(QByteArray, tool);
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, trickle);
        QFETCH(int, holders);
        QFETCH(QString, answer);
        QFETCH(bool, closed);
        QFETCH(int, logLines);
        const int linesBefore = m_daemon->count("closed") + m_daemon->count("refused");
        if (tool == "drop") {
            const int retries = m_daemon->count("retrying");
            m_tool.say(tool);
            QVERIFY(QTest::qWaitFor([&] { return m_daemon->count("retrying") > retries; }, 10000));
        }
        QList<std::shared_ptr<QTcpSocket>> others;
        for (int i = 0; i < holders; ++i) {
            others << std::make_shared<QTcpSocket>();
            others.last()->connectToHost(QHostAddress::LocalHost, m_port);
            QVERIFY(others.last()->waitForConnected(2000));
            others.last()->write(c_start);
            QVERIFY(others.last()->waitForReadyRead(2000));
        }
        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, m_port);
        QVERIFY(client.waitForConnected(2000));
        client.write(sent);
        if (tool == "event")
            m_tool.say(tool);
        QTimer events;
        connect(&events, &QTimer::timeout, this, [this] { m_tool.say("event"); });
        events.start(tool == "events" ? 2000 : INT_MAX);
        QTimer trickling;
        connect(&trickling, &QTimer::timeout, this, [&] {
            if (trickle.isEmpty() || client.state() != QAbstractSocket::ConnectedState)
                return;
            client.write(trickle.left(1));
            trickle.remove(0, 1);
        });
        trickling.start(200);
        QByteArray received;
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(answer));
        const auto shown = [&] { return QString::fromLatin1(QByteArray(received).replace('\0', '|')); };
        const auto done = [&] {
            received += client.readAll();
            if (!reply.isEmpty() && received.contains("0061")) {
                client.write(reply);
                reply.clear();
            }
            const bool ended = client.state() == QAbstractSocket::UnconnectedState;
            return pattern.match(shown()).hasMatch() && ended == closed;
        };
        const bool trickled = !trickle.isEmpty();
        QVERIFY2(QTest::qWaitFor(done, 30000), qPrintable(shown()));
        QVERIFY2(!trickled || !trickle.isEmpty(), "the answer came only after the trickle was used up");
        events.stop();
        QTest::qWait(1500);  // nothing more comes, not even past the acknowledgement's timeout
        QVERIFY2(done(), qPrintable(shown()));
        QTRY_COMPARE(m_daemon->count("closed") + m_daemon->count("refused"), linesBefore + logLines);
    }

    // A connection flood past the limit: counted lines (a tenth of one per connection at most), and the
    // clients in place still answered.
    void refusalsCollapsed()
    {
        QTest::qWait(1000);  // the clients of the rows before are gone
        const int linesBefore = m_daemon->count("refused");
        QList<std::shared_ptr<QTcpSocket>> clients;
        for (int i = 0; i < 202; ++i) {
            clients << std::make_shared<QTcpSocket>();
            clients.last()->connectToHost(QHostAddress::LocalHost, m_port);
            QVERIFY(clients.last()->waitForConnected(2000));
        }
        clients.first()->write(c_start + msg("9999"));  // the first is one of the two allowed
        QTRY_VERIFY(clients.first()->peek(1000).endsWith(msg("9999")));
        QTest::qWait(2500);  // the counted lines are said as their second ends
        QVERIFY2(m_daemon->count("refused") - linesBefore <= 20, m_daemon->errText().right(2000).constData());
    }

private:
    QTemporaryDir m_dir;
    DSimulatedTool m_tool;
    std::unique_ptr<DTimedHytorc> m_daemon;
    quint16 m_port = 0;
};

QTEST_GUILESS_MAIN(TestOpServer)
#include "test_op_server.moc"
