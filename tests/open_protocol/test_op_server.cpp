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

QByteArray msg(const char* mid, const QByteArray& data = QByteArray(), const char* revision = "001")
{
    const QByteArray body = QByteArray(mid) + revision + QByteArray(9, ' ') + data;
    return QByteArray::number(body.size() + 4).rightJustified(4, '0') + body + '\0';
}

const QByteArray c_start = msg("0001");
// The answer to 0001, and to 0004/0005 of a MID and code.
const QString c_started = QStringLiteral("00570002001 {9}010001020103T1 {23}\\|");
QString accepted(const char* mid) { return QStringLiteral("00240005001 {9}%1\\|").arg(mid); }
QString refused(const char* mid, const char* code) { return QStringLiteral("00260004001 {9}%1%2\\|").arg(mid, code); }
const QString c_timestamp = QStringLiteral("\\d{4}-\\d\\d-\\d\\d:\\d\\d:\\d\\d:\\d\\d");
// The first result, of program 3 (800 N·m) as the rows before it leave the tool.
const QString c_result = "02310061001 {9}010001020103T1 {23}04[\\d ]{25}05000600307000008000009[01]10[01]110"
                         "120000001300000014080000150\\d{5}160000017000001800000190000020" + c_timestamp
                         + "21" + c_timestamp + "220230000000001\\|";

const QString c_selected = QStringLiteral("00460015001 {9}0100302%1\\|").arg(c_timestamp);

} // namespace

class TestOpServer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_tool.start({}));
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
        QTest::addColumn<QByteArray>("tool");  // told to the simulator after `sent`; "drop" before connecting
        QTest::addColumn<int>("holders");    // other clients connected meanwhile
        QTest::addColumn<QString>("answer");  // all that comes back, as a pattern
        QTest::addColumn<bool>("closed");
        QTest::addColumn<int>("logLines");

        QTest::newRow("programs, in one write with NULs between") << c_start + QByteArray(3, '\0') + msg("0010") << QByteArray() << 0
            << c_started + "00380011001 {9}005001002003004005\\|" << false << 0;
        QTest::newRow("program 2, padded header, spaced number") << c_start + "0027001200100101        002" + '\0' + msg("0012", "009")
            << QByteArray() << 0
            << c_started + "01040013001 {9}0100202P2 {23}0310400050000000600000007025050080000009000001000030\\|"
               + refused("0012", "02") << false << 0;
        QTest::newRow("tool identity") << c_start + msg("0040") << QByteArray() << 0
            << c_started + "00810041001 {9}01HYT24A0137    02\\d{10}032025-09-14:00:00:0004T1        \\|" << false << 0;
        QTest::newRow("program selected by 0018, 0015 to the subscriber")
            << c_start + msg("0014") + msg("0014") + msg("0018", "   3") + msg("0018", "7") + msg("0017") + msg("0017")
            << QByteArray() << 0
            << c_started + accepted("0014") + refused("0014", "13") + "(?:" + c_selected + accepted("0018") + "|"
               + accepted("0018") + c_selected + ")" + refused("0018", "02") + accepted("0017") + refused("0017", "14") << false << 0;
        QTest::newRow("unknown MID, wrong revision, 0001 twice, blank revision")
            << c_start + msg("0077") + msg("0010", {}, "002") + c_start + msg("9999", {}, "   ")
            << QByteArray() << 0 << c_started + refused("0077", "99") + refused("0010", "97") + refused("0001", "96")
               + "00209999001 {9}\\|" << false << 0;
        QTest::newRow("an unanswered result sent 4 times, then closed") << c_start + msg("0060") + msg("0060")
            << QByteArray("event") << 0 << c_started + accepted("0060") + refused("0060", "09") + c_result + c_result + c_result + c_result
            << true << 1;
        QTest::newRow("latest and unknown old results") << c_start + msg("0064", "0000000000") + msg("0064", "99")
            << QByteArray() << 0 << c_started + "01180065001 {9}01000000000102[\\d ]{25}0300304000005[01]06[01]070"
               "08\\d{6}0900000" + "10" + c_timestamp + "110\\|" + refused("0064", "15") << false << 0;
        QTest::newRow("acknowledged, then unsubscribed") << c_start + msg("0060") + msg("0063") + msg("0063")
            << QByteArray() << 0 << c_started + accepted("0060") + accepted("0063") + refused("0063", "10") << false << 0;
        QTest::newRow("0003 ends the session") << c_start + msg("0003") + msg("0010") << QByteArray() << 0
            << c_started + accepted("0003") << true << 0;
        QTest::newRow("0002 of a client leaving") << c_start + msg("0002") << QByteArray() << 0 << c_started << true << 0;
        QTest::newRow("MID before 0001") << msg("0010") << QByteArray() << 0 << QString() << true << 1;
        QTest::newRow("length not digits") << c_start + "00x40001001         " + '\0' << QByteArray() << 0 << c_started << true << 1;
        QTest::newRow("length below 20") << QByteArray("0019000100100000000\0", 20) << QByteArray() << 0 << QString() << true << 1;
        QTest::newRow("not ended where its length says") << QByteArray("00200001001         X") << QByteArray() << 0
            << QString() << true << 1;
        QTest::newRow("ended before its length says") << QByteArray("00300001001         \0", 21) << QByteArray() << 0
            << QString() << true << 1;
        QTest::newRow("one client too many") << c_start << QByteArray() << 2 << QString() << true << 1;
        QTest::newRow("gone silent") << QByteArray() << QByteArray() << 0 << QString() << true << 1;
        QTest::newRow("tool commands while the link is down") << c_start + msg("0018", "001") + msg("0042") + msg("0043")
            << QByteArray("drop") << 0 << c_started + refused("0018", "27") + refused("0042", "27") + refused("0043", "27")
            << false << 0;
    }

    void exchange()
    {
        QFETCH(QByteArray, sent);
        QFETCH(QByteArray, tool);
        QFETCH(int, holders);
        QFETCH(QString, answer);
        QFETCH(bool, closed);
        QFETCH(int, logLines);
        const int linesBefore = m_daemon->count("closed") + m_daemon->count("refused");
        if (tool == "drop") {
            m_tool.say(tool);
            QVERIFY(QTest::qWaitFor([this] { return m_daemon->count("retrying") > 0; }, 10000));
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
        QByteArray received;
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(answer));
        const auto shown = [&] { return QString::fromLatin1(QByteArray(received).replace('\0', '|')); };
        const auto done = [&] {
            received += client.readAll();
            const bool ended = client.state() == QAbstractSocket::UnconnectedState;
            return pattern.match(shown()).hasMatch() && ended == closed;
        };
        QVERIFY2(QTest::qWaitFor(done, 8000), qPrintable(shown()));
        QTest::qWait(300);  // nothing more comes
        QVERIFY2(done(), qPrintable(shown()));
        QTRY_COMPARE(m_daemon->count("closed") + m_daemon->count("refused"), linesBefore + logLines);
    }

private:
    QTemporaryDir m_dir;
    DSimulatedTool m_tool;
    std::unique_ptr<DTimedHytorc> m_daemon;
    quint16 m_port = 0;
};

QTEST_GUILESS_MAIN(TestOpServer)
#include "test_op_server.moc"
