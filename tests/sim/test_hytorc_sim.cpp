// hytorc-sim run as a child process and driven through its real pseudo-terminal.
#include "d_sim_host.h"
#include "hytorc_hcp_frame.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

namespace {

const QByteArray c_ack = QByteArray::fromHex("00014800FFB7");
const QByteArray c_nack = QByteArray::fromHex("00010800FFF7");
const QStringList c_toolInfo{"LION-2", "HYT24A0137", "2.4.1", "1.9.0", "1.2.3", "4.04", "1873", "2025-09-14", "PCB-C3"};

QStringList toolInfoReply(const QString& framingWord)
{
    return QStringList{framingWord, "GET ADMIN TOOL_INFO"} + c_toolInfo + QStringList{"ERRORCODE,0", "PASSED"};
}

HytorcHcpFrame::Header headerOf(const QByteArray& frame)
{
    HytorcHcpFrame::Header header;
    HytorcHcpFrame::parseHeader(frame, &header);
    return header;
}

QStringList linesOf(const QByteArray& frame)
{
    return HytorcHcpFrame::payloadLines(HytorcHcpFrame::parseFrame(frame).value("payload").toByteArray());
}

bool checksumHolds(const QByteArray& frame)
{
    quint32 sum = 0;
    for (int i = 0; i < frame.size() - 2; ++i)
        sum += quint8(frame.at(i));
    return quint16(sum + ((quint8(frame.at(frame.size() - 2)) << 8) | quint8(frame.at(frame.size() - 1)))) == 0;
}

}  // namespace

class TestHytorcSim : public QObject
{
    Q_OBJECT

private slots:
    void answersEveryRequest();
    void splitReplyWaitsForEachAck();
    void keepAliveGetsNackOnly();
    void sendsEvents();
    void ignoresFirstHeaders();
    void dropsAndReopensTheLink();
    void junkBurstPrecedesReply();
    void spoiltWritesStillCarryFrames();
    void pacesBytesAtTheLineRate();
    void stopsOnlyWhenTold();
};

void TestHytorcSim::answersEveryRequest()
{
    DSimHost host;
    QVERIFY(host.start({"--baud", "0"}));
    QVERIFY(host.openPort());

    QVERIFY(host.beginTransaction("GET ADMIN TOOL_INFO\r\n"));
    const QByteArray reply = host.nextFrame();
    const HytorcHcpFrame::Header header = headerOf(reply);
    QCOMPARE(int(header.linkFlags), 0);
    QVERIFY(header.isData() && header.isLast() && !header.isCommand());
    QCOMPARE(header.sequence(), 1);
    QVERIFY(checksumHolds(reply));
    QCOMPARE(linesOf(reply), toolInfoReply("RESPONSE"));
    host.sendAck();

    // Request, then the lines after the echo; the reply of each is asked in its own transaction.
    const QList<QPair<QByteArray, QStringList>> cases{
        {"SET JOBS PROFILE\r\nP2,TQA,NM,250.5,30,1,RH\r\n", {"ERRORCODE,0", "PASSED"}},
        {"SET JOBS PROFILE\r\nP9,TQ,NM,1,0,0,RH\r\n", {"ERRORCODE,3"}},
        {"SET FLAGS OPEN_PROTOCOL\r\nOPEN_PROTOCOL_LOCK\r\n", {"ERRORCODE,0", "PASSED"}},
        {"SET FLAGS OPEN_PROTOCOL\r\n", {"ERRORCODE,0", "PASSED"}},
        {"SET ADMIN ACCESS_LEVEL\r\nL2\r\n", {"ERRORCODE,0", "PASSED"}},
        {"SET ADMIN ACCESS_LEVEL\r\nL9\r\n", {"ERRORCODE,2"}},
        {"SET PING INTERVAL\r\n500\r\n", {"ERRORCODE,0", "PASSED"}},
        {"SET PING INTERVAL\r\n-5\r\n", {"ERRORCODE,2"}},
        {"GET STATE BATTERY\r\n", {"87", "ERRORCODE,0", "PASSED"}},
        {"GET SOMETHING ELSE\r\n", {"ERRORCODE,1"}},
    };
    for (const auto& entry : cases) {
        QVERIFY(host.beginTransaction(entry.first));
        const QStringList lines = host.readReply();
        QCOMPARE(lines.mid(0, 2), (QStringList{"RESPONSE", QString(entry.first).section("\r\n", 0, 0)}));
        QCOMPARE(lines.mid(2), entry.second);
    }

    QVERIFY(host.beginTransaction("GET JOBS PROFILE\r\n"));
    const QStringList profiles = host.readReply().mid(2, 4);
    QCOMPARE(profiles.size(), 4);
    for (const QString& profile : profiles)
        QVERIFY2(profile.split(',').size() >= 4, qPrintable(profile));

    QVERIFY(host.beginTransaction(QByteArray("\x01\x02\r\n")));
    QCOMPARE(host.readReply(), (QStringList{"RESPONSE", "FAILED"}));
}

void TestHytorcSim::splitReplyWaitsForEachAck()
{
    DSimHost host;
    QVERIFY(host.start({"--reply-frames", "3", "--framing-word", "HCD"}));
    QVERIFY(host.openPort());
    QVERIFY(host.beginTransaction("GET ADMIN TOOL_INFO\r\n"));

    const QByteArray first = host.nextFrame();
    QVERIFY(!headerOf(first).isLast());
    QVERIFY(host.quietFor(300));
    // An event goes out between two reply frames; its acknowledgement must not count
    // as the one for the reply frame.
    host.say("event");
    QVERIFY(headerOf(host.nextFrame()).isToolInitiated());
    host.sendAck();  // for the first reply frame
    const QByteArray second = host.nextFrame();
    QVERIFY(!second.isEmpty());
    QVERIFY(!headerOf(second).isLast());
    host.sendAck();  // for the event
    QVERIFY(host.quietFor(300));
    host.sendAck();  // for the second reply frame
    const QByteArray third = host.nextFrame();
    QVERIFY(headerOf(third).isLast());

    const QStringList lines = linesOf(first) + linesOf(second) + linesOf(third);
    QCOMPARE(lines, toolInfoReply("HCD"));
}

void TestHytorcSim::keepAliveGetsNackOnly()
{
    DSimHost host;
    QVERIFY(host.start({"--baud", "0"}));
    QVERIFY(host.openPort());
    host.send(HytorcHcpFrame::buildFrame("GET STATE BATTERY\r\n", true, true, true, 0));
    QCOMPARE(host.nextFrame(), c_nack);
    host.sendAck();
    QVERIFY(host.quietFor(300));

    QVERIFY(host.beginTransaction("GET STATE BATTERY\r\n"));
    QCOMPARE(host.readReply(), (QStringList{"RESPONSE", "GET STATE BATTERY", "87", "ERRORCODE,0", "PASSED"}));
}

void TestHytorcSim::sendsEvents()
{
    DSimHost host;
    QVERIFY(host.start({"--event-period", "200"}));
    QVERIFY(host.openPort());
    host.say("event");
    for (int i = 0; i < 3; ++i) {
        const QByteArray frame = host.nextFrame();
        const HytorcHcpFrame::Header header = headerOf(frame);
        QCOMPARE(int(header.linkFlags), 0x03);
        QVERIFY(header.isData() && header.isLast());
        const QStringList lines = linesOf(frame);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0), QString("SET EVENT LOG"));
        const QStringList fields = lines.at(1).split(',');
        QVERIFY2(fields.size() > 15, qPrintable(lines.at(1)));
        QVERIFY(QDate::fromString(fields.at(0), Qt::ISODate).isValid());
        QVERIFY(fields.at(2).toInt() > 0);
        QCOMPARE(fields.at(4), QString("P1"));
        QCOMPARE(fields.at(10), QString("FTLB"));
        QVERIFY(fields.at(13) == "PASSED" || fields.at(13) == "FAILED");
        QVERIFY(QRegularExpression("^\\d+\\.\\d{3}$").match(fields.at(14)).hasMatch());
        host.sendAck();
    }
}

void TestHytorcSim::ignoresFirstHeaders()
{
    DSimHost host;
    QVERIFY(host.start({"--ignore-headers", "2"}));
    QVERIFY(host.openPort());
    host.sendHeader();
    host.sendHeader();
    QVERIFY(host.quietFor(300));
    host.sendHeader();
    QCOMPARE(host.nextFrame(), c_ack);
}

void TestHytorcSim::dropsAndReopensTheLink()
{
    QTemporaryDir dir;
    const QString link = dir.filePath("rfcomm");
    DSimHost host;
    QVERIFY(host.start({"--link", link, "--drop-after", "2", "--reopen-after", "300"}));
    QCOMPARE(QFileInfo(link).symLinkTarget(), host.printedPath());
    QVERIFY(host.openPort(link));
    host.sendHeader();
    QCOMPARE(host.nextFrame(), c_ack);
    host.sendRequest("GET ADMIN TOOL_INFO\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.port().error() != QSerialPort::NoError, DSimHost::c_waitMs);
    QVERIFY(host.nextFrame(300).isEmpty());

    QVERIFY(QTest::qWaitFor([&] { return host.process().canReadLine(); }, DSimHost::c_waitMs));
    const QString newPath = QString::fromLocal8Bit(host.process().readLine()).trimmed();
    QVERIFY(newPath != host.printedPath());
    QCOMPARE(QFileInfo(link).symLinkTarget(), newPath);
    host.port().clearError();
    QVERIFY(host.openPort(link));
    QVERIFY(host.beginTransaction("GET ADMIN TOOL_INFO\r\n"));
    QCOMPARE(host.readReply().mid(2, 9), c_toolInfo);
}

void TestHytorcSim::junkBurstPrecedesReply()
{
    DSimHost host;
    QVERIFY(host.start({"--junk-before-reply", "--baud", "0"}));
    QVERIFY(host.openPort());
    host.sendHeader();
    QCOMPARE(host.nextFrame(), c_ack);
    host.sendRequest("GET STATE BATTERY\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.rawReceived().contains("PASSED\r\n"), DSimHost::c_waitMs);

    // ACK, ACK, then the junk, then the reply frame.
    const QByteArray raw = host.rawReceived();
    QVERIFY(raw.startsWith(c_ack + c_ack));
    const int replyStart = raw.indexOf("RESPONSE") - HytorcHcpFrame::c_headerSize;
    const QByteArray junk = raw.mid(2 * c_ack.size(), replyStart - 2 * c_ack.size());
    QVERIFY2(junk.size() > 6, junk.toHex(' ').constData());
    QVERIFY2(junk.count('\0') + junk.count('\xff') >= 0.85 * junk.size(), junk.toHex(' ').constData());
}

void TestHytorcSim::spoiltWritesStillCarryFrames()
{
    DSimHost host;
    QVERIFY(host.start({"--noise", "100", "--split-writes", "100", "--bad-checksums", "100", "--error-replies", "7",
                        "--seed", "42"}));
    QVERIFY(host.openPort());
    host.sendHeader();
    QCOMPARE(host.nextFrame().left(4), c_ack.left(4));
    host.sendRequest("GET ADMIN TOOL_INFO\r\n");
    QCOMPARE(host.nextFrame().left(4), c_ack.left(4));
    const QByteArray reply = host.nextFrame();
    QVERIFY(!checksumHolds(reply));
    QCOMPARE(linesOf(reply), (QStringList{"RESPONSE", "GET ADMIN TOOL_INFO", "ERRORCODE,7"}));
    // Noise letters come before the first frame start.
    const QByteArray raw = host.rawReceived();
    const int firstFrame = raw.indexOf('\0');
    QVERIFY(firstFrame > 0);
    for (const char byte : raw.left(firstFrame))
        QVERIFY2(byte >= 'A' && byte <= 'Z', raw.toHex(' ').constData());
}

void TestHytorcSim::pacesBytesAtTheLineRate()
{
    DSimHost host;
    QVERIFY(host.start({"--baud", "9600", "--reply-frames", "1"}));
    QVERIFY(host.openPort());
    host.sendHeader();
    QCOMPARE(host.nextFrame(), c_ack);
    QElapsedTimer clock;
    clock.start();
    host.sendRequest("GET ADMIN TOOL_INFO\r\n");
    QCOMPARE(host.nextFrame(), c_ack);
    const QByteArray reply = host.nextFrame();
    QVERIFY(!reply.isEmpty());
    // 10 bits per byte at 9600 bit/s; only the lower bound is safe to check on a busy machine.
    const qint64 lineMs = (c_ack.size() + reply.size()) * 10 * 1000 / 9600;
    QVERIFY2(clock.elapsed() >= lineMs - 5, qPrintable(QString("%1 ms < %2 ms").arg(clock.elapsed()).arg(lineMs)));
}

void TestHytorcSim::stopsOnlyWhenTold()
{
    QTemporaryDir dir;
    const QString link = dir.filePath("tool");
    DSimHost host;
    QVERIFY(host.start({"--link", link}));
    host.process().closeWriteChannel();
    QVERIFY(host.openPort());
    host.sendHeader();
    QCOMPARE(host.nextFrame(), c_ack);
    QCOMPARE(host.process().state(), QProcess::Running);

    ::kill(pid_t(host.process().processId()), SIGTERM);
    QVERIFY(host.process().waitForFinished(DSimHost::c_waitMs));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
    QVERIFY(!QFileInfo(link).isSymLink());

    DSimHost other;
    QVERIFY(other.start({}));
    other.say("quit");
    QVERIFY(other.process().waitForFinished(DSimHost::c_waitMs));
    QCOMPARE(other.process().exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestHytorcSim)
#include "test_hytorc_sim.moc"
