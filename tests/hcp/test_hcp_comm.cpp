// HCP transaction engine, driven by tool frames; every byte it asks to
// write is checked. The retry timer is expired on demand through its slot; the real
// intervals are checked once in test_hcp_retry_road.
#include "hcp_test_support.h"

#include <QElapsedTimer>
#include <QRegularExpression>

using namespace hcptest;

namespace {

QStringList g_criticals;
QtMessageHandler g_previousHandler = nullptr;

void captureCriticals(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtCriticalMsg)
        g_criticals << message;
    else if (g_previousHandler)
        g_previousHandler(type, context, message);
}

// The layout of the critical lines, up to the message parts.
QRegularExpression criticalLine(int line, const QString& message)
{
    return QRegularExpression(QStringLiteral("^\\n \"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}\" ;\\t "
                                             "Thread = QThread\\(0x[0-9a-f]+[^;]*\\) ;\\t "
                                             "This = HytorcHcpComm\\(0x[0-9a-f]+\\) ;\\t "
                                             "plugins/p_device_hytorc/source/hytorc_hcp_comm ;\\t %1 ;\\t %2$")
                                  .arg(line)
                                  .arg(QRegularExpression::escape(message)));
}

const QByteArray c_toolInfo = "GET ADMIN TOOL_INFO\r\n";

} // namespace

class TestHcpComm : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void fullTransaction();
    void requestTrimmedAndSequenceNumbers();
    void severalFramesInOneChunk();
    void replyOverThreeFrames();
    void longReplyFrameInPieces();
    void toolErrorLine_data();
    void toolErrorLine();
    void framesAfterToolErrorStillCollected();
    void nackInState3Completes();
    void eventInEveryState_data();
    void eventInEveryState();
    void eventOverSeveralFramesAndCap();
    void replyDataOutsideState3Ignored_data();
    void replyDataOutsideState3Ignored();
    void ackInState3Ignored();
    void checksumNotChecked();

    void duplicateChunkNumbers();
    void junkChunk();
    void sixBytesNeverJunk();
    void overflowAtTheLimit();
    void overflowCountsKeptBytes();

    void retryFromEveryStateKeepsLines();
    void fiveRetriesThenTimeout();
    void timerInState0DoesNothing();
    void resetForgetsTransaction();
    void sendRequestClearsBufferAndLines();
    void ownerGone();
    void resetFromSlotDropsRestOfChunk();
    void synchronousLoopback();
};

void TestHcpComm::initTestCase()
{
    g_previousHandler = qInstallMessageHandler(captureCriticals);
}

void TestHcpComm::init()
{
    g_criticals.clear();
}

void TestHcpComm::fullTransaction()
{
    Engine e;
    QElapsedTimer clock;
    clock.start();
    e.comm->sendRequest(QString::fromLatin1(c_toolInfo));
    QVERIFY(e.writes.isEmpty());
    QVERIFY(e.writes.wait(1000));
    QVERIFY2(clock.elapsed() >= 190, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{hex("00 01 80 05 55 49 43 0D 0A FE 82")});

    e.feed(ack()); // header acknowledged: the request, sequence 1
    QCOMPARE(e.takeWrites(), QList<QByteArray>{hex("00 00 9C 15") + c_toolInfo + hex("F9 E6")});

    e.feed(ack()); // request acknowledged: awaiting the reply
    QVERIFY(e.writes.isEmpty());

    e.feed(reply("GET ADMIN TOOL_INFO\r\nRESPONSE\r\nHT-BTi 1\r\nSN 0042\r\nERRORCODE,0\r\nPASSED\r\n", true));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{hex("00 01 48 00 FF B7")});
    QCOMPARE(e.data.count(), 1);
    QCOMPARE(e.lastData(), (QStringList{"HT-BTi 1", "SN 0042"}));
    QCOMPARE(e.errors.count() + e.events.count() + e.junk.count(), 0);

    // Back in state 0: a late reply frame is neither acknowledged nor collected.
    e.feed(reply("late\r\n", true));
    QCOMPARE(e.signalCount(), 1);
}

void TestHcpComm::requestTrimmedAndSequenceNumbers()
{
    Engine e;
    QVERIFY(e.toRequestSent("  GET JOBS PROFILE \t", 1)); // trimmed, CR LF appended
    e.feed(ack());
    e.feed(reply("done\r\n", true));
    QCOMPARE(e.data.count(), 1);
    e.takeWrites();
    // No reset in between: 2, 3, 0, 1.
    for (int sequence : {2, 3, 0, 1}) {
        QVERIFY(e.toRequestSent("GET JOBS PROFILE", sequence));
        e.feed(ack());
        e.feed(reply("done\r\n", true));
        e.takeWrites();
    }
    QCOMPARE(e.data.count(), 5);
    e.comm->reset();
    QVERIFY(e.toRequestSent("GET JOBS PROFILE", 1));
}

void TestHcpComm::severalFramesInOneChunk()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    e.feed(ack() + ack()); // header and request ACKs together
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    e.feed(reply("a\r\n", false) + reply("b\r\n", false) + reply("c\r\n", true));
    QCOMPARE(e.takeWrites(), acks(3));
    QCOMPARE(e.data.count(), 1);
    QCOMPARE(e.lastData(), (QStringList{"a", "b", "c"}));
}

void TestHcpComm::replyOverThreeFrames()
{
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("RESPONSE\r\nline 1\r\n", false));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    e.feed(reply("line 2\r\nline 3\r\n", false));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.data.count(), 0);
    e.feed(reply("line 4\r\nPASSED\r\n", true));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.data.count(), 1);
    QCOMPARE(e.lastData(), (QStringList{"line 1", "line 2", "line 3", "line 4"}));
    QCOMPARE(e.errors.count(), 0);
}

void TestHcpComm::longReplyFrameInPieces()
{
    Engine e;
    QVERIFY(e.toAwaitingReply());
    QByteArray payload;
    QStringList expected;
    for (int i = 0; payload.size() < 290; ++i) {
        payload += "program " + QByteArray::number(i) + "\r\n";
        expected << QStringLiteral("program %1").arg(i);
    }
    const QByteArray frame = reply(payload, true);
    QVERIFY(frame.size() > 295);
    for (int at = 0; at < frame.size(); at += 37) {
        QVERIFY(e.writes.isEmpty());
        e.feed(frame.mid(at, 37));
    }
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.lastData(), expected);
}

void TestHcpComm::toolErrorLine_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("error");
    QTest::newRow("ERRORCODE,3") << QByteArray("RESPONSE\r\nERRORCODE,3\r\nFAILED\r\n")
                                 << QStringLiteral("Tool returned error: ERRORCODE,3");
    QTest::newRow("FAILED") << QByteArray("RESPONSE\r\nx\r\nFAILED\r\n") << QStringLiteral("Tool returned error: FAILED");
}

void TestHcpComm::toolErrorLine()
{
    QFETCH(QByteArray, payload);
    QFETCH(QString, error);
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(reply(payload, true));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()}); // acknowledged all the same
    QCOMPARE(e.errors.count(), 1);
    QCOMPARE(e.lastError(), error);
    QCOMPARE(e.data.count(), 0);
}

void TestHcpComm::framesAfterToolErrorStillCollected()
{
    // The error ends the transaction for the command, but the engine stays in state 3.
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("before\r\nERRORCODE,3\r\nskipped\r\n", false));
    QCOMPARE(e.lastError(), QStringLiteral("Tool returned error: ERRORCODE,3"));
    e.feed(reply("after\r\n", true));
    QCOMPARE(e.takeWrites(), acks(2));
    QCOMPARE(e.data.count(), 1);
    QCOMPARE(e.lastData(), (QStringList{"before", "after"}));
    QCOMPARE(e.errors.count(), 1);
}

void TestHcpComm::nackInState3Completes()
{
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("gathered\r\n", false));
    e.feed(nack());
    QCOMPARE(e.takeWrites(), acks(2));
    QCOMPARE(e.data.count(), 1);
    QCOMPARE(e.lastData(), QStringList{"gathered"});
}

void TestHcpComm::eventInEveryState_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("byPrefix");
    for (int state = 0; state <= 3; ++state) {
        QTest::addRow("state %d, tool bit", state) << state << false;
        QTest::addRow("state %d, SET EVENT LOG", state) << state << true;
    }
}

void TestHcpComm::eventInEveryState()
{
    QFETCH(int, state);
    QFETCH(bool, byPrefix);
    const QByteArray payload = "SET EVENT LOG\r\nHCD\r\nRESPONSE\r\nERRORCODE,0\r\nTQ,120.5\r\nUIC\r\nPASSED\r\n";
    const QByteArray frame = byPrefix ? reply(payload, true) : toolEvent(payload);
    const QStringList lines{"SET EVENT LOG", "TQ,120.5", "UIC", "PASSED"};

    Engine e;
    bool reached = true;
    switch (state) {
    case 1: reached = e.toHeaderSent(); break;
    case 2: reached = e.toRequestSent(); break;
    case 3: reached = e.toAwaitingReply(); break;
    default: break;
    }
    QVERIFY(reached);

    e.feed(frame);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.events.count(), 1);
    QCOMPARE(e.lastEvent(), lines);
    QCOMPARE(e.data.count() + e.errors.count(), 0);

    // The transaction goes on from where it was.
    if (state == 0)
        QVERIFY(e.toHeaderSent());
    if (state <= 1) {
        e.feed(ack());
        QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    }
    if (state <= 2)
        e.feed(ack());
    e.feed(reply("RESPONSE\r\nvalue\r\nPASSED\r\n", true));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.lastData(), QStringList{"value"});
    QCOMPARE(e.events.count(), 1);
}

void TestHcpComm::eventOverSeveralFramesAndCap()
{
    Engine e;
    e.feed(toolEvent("SET EVENT LOG\r\nA,1\r\n", false));
    e.feed(toolEvent("B,2\r\nFAILED\r\n", false));
    QCOMPARE(e.events.count(), 0);
    e.feed(toolEvent("C,3\r\n", true));
    QCOMPARE(e.events.count(), 1);
    QCOMPARE(e.lastEvent(), (QStringList{"SET EVENT LOG", "A,1", "B,2", "FAILED", "C,3"}));
    QCOMPARE(e.takeWrites(), acks(3));
    QCOMPARE(e.errors.count(), 0);

    // At most 100 lines: the oldest go first.
    QByteArray many;
    for (int i = 0; i < 130; ++i)
        many += "L" + QByteArray::number(i) + "\r\n";
    const int cut = many.indexOf("\r\n", 590) + 2; // two frames, cut between lines
    e.feed(toolEvent(many.left(cut), false));
    e.feed(toolEvent(many.mid(cut), true));
    QCOMPARE(e.events.count(), 2);
    QStringList expected;
    for (int i = 30; i < 130; ++i)
        expected << QStringLiteral("L%1").arg(i);
    QCOMPARE(e.lastEvent(), expected);

    // Emptied after each complete message.
    e.feed(toolEvent("D\r\n", true));
    QCOMPARE(e.lastEvent(), QStringList{"D"});
}

void TestHcpComm::replyDataOutsideState3Ignored_data()
{
    QTest::addColumn<int>("state");
    for (int state = 0; state <= 2; ++state)
        QTest::addRow("state %d", state) << state;
}

void TestHcpComm::replyDataOutsideState3Ignored()
{
    QFETCH(int, state);
    Engine e;
    QVERIFY(state == 0 || (state == 1 ? e.toHeaderSent() : e.toRequestSent()));
    e.feed(reply("stray\r\n", true));
    e.feed(nack());
    QCOMPARE(e.signalCount(), 0); // neither acknowledged nor collected
    if (state == 0) {
        e.feed(ack()); // and an ACK in state 0 does nothing
        QCOMPARE(e.signalCount(), 0);
        return;
    }
    if (state == 1) {
        e.feed(ack());
        QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    }
    e.feed(ack());
    e.feed(reply("kept\r\n", true));
    QCOMPARE(e.lastData(), QStringList{"kept"}); // "stray" never collected
}

void TestHcpComm::ackInState3Ignored()
{
    // An ACK in state 3 is ignored: the reply still completes normally.
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(ack());
    QCOMPARE(e.signalCount(), 0);
    e.feed(reply("x\r\n", true));
    QCOMPARE(e.lastData(), QStringList{"x"});
}

void TestHcpComm::checksumNotChecked()
{
    // The checksum is not checked on receipt.
    Engine e;
    QVERIFY(e.toAwaitingReply());
    QByteArray frame = reply("ok\r\n", true);
    frame[frame.size() - 1] = 0x11;
    e.feed(frame);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.lastData(), QStringList{"ok"});
}

void TestHcpComm::duplicateChunkNumbers()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    e.comm->onRawData(ack(), 7);
    QCOMPARE(e.takeWrites().size(), 1); // request sent, state 2
    e.comm->onRawData(ack(), 7);        // delivered twice: ignored, still state 2
    e.comm->onRawData(reply("early\r\n", true), 8);
    QCOMPARE(e.signalCount(), 0);        // state 2 ignores reply data
    e.comm->onRawData(ack(), 7);         // 7 after 8: accepted, state 3
    e.comm->onRawData(reply("A\r\n", false), 9);
    e.comm->onRawData(reply("A\r\n", false), 9); // ignored
    e.comm->onRawData(reply("B\r\n", true), 10);
    QCOMPARE(e.takeWrites(), acks(2));
    QCOMPARE(e.lastData(), (QStringList{"A", "B"}));

    // -1 is never a duplicate; an empty chunk still takes its number.
    Engine f;
    f.comm->onRawData(toolEvent("E1\r\n"), -1);
    f.comm->onRawData(toolEvent("E2\r\n"), -1);
    QCOMPARE(f.events.count(), 2);
    f.comm->onRawData(QByteArray(), 3);
    f.comm->onRawData(toolEvent("E3\r\n"), 3);
    QCOMPARE(f.events.count(), 2);
    // 0 (a chunk without number) twice in a row: the second is ignored.
    f.comm->onRawData(toolEvent("E4\r\n"), 0);
    f.comm->onRawData(toolEvent("E5\r\n"), 0);
    QCOMPARE(f.events.count(), 3);
    QCOMPARE(f.lastEvent(), QStringList{"E4"});
}

void TestHcpComm::junkChunk()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    e.feed(ack().left(5));                    // most of an ACK waiting in the buffer
    e.feed(hex("FF FF 41 FF FF FF FF"));      // 6 of 7 are 0xFF: 6 >= 5.95
    QCOMPARE(e.junk.count(), 1);
    QCOMPARE(g_criticals.size(), 1);
    QVERIFY2(criticalLine(67, QStringLiteral("[HYTORC-COMM] Junk frame detected (Saturation 6 / 7 ). Purging buffer."))
                 .match(g_criticals.first())
                 .hasMatch(),
             qPrintable(g_criticals.first()));
    e.feed(ack().mid(5)); // the buffer was purged: the rest of the ACK alone is nothing
    QCOMPARE(e.writes.count(), 0);
    e.feed(ack());        // the transaction goes on
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});

    // 0x00 counts as well; 5 of 7 does not.
    e.feed(hex("00 00 00 FF FF FF 00 00"));
    QCOMPARE(e.junk.count(), 2);
    e.feed(hex("41 42 FF FF FF FF FF"));
    QCOMPARE(e.junk.count(), 2);
    QCOMPARE(e.errors.count(), 0);
}

void TestHcpComm::sixBytesNeverJunk()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    e.feed(hex("FF FF FF FF FF FF"));
    QCOMPARE(e.junk.count(), 0);
    e.feed(ack()); // 0x00 0x01 0x48 0x00 0xFF 0xB7 is 6 bytes: never junk, handled
    QCOMPARE(e.junk.count(), 0);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    QVERIFY(g_criticals.isEmpty());
}

void TestHcpComm::overflowAtTheLimit()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    // 65536 bytes at once (noise, then the header's ACK): accepted.
    QByteArray chunk(65536 - 6, 'n');
    chunk += ack();
    e.feed(chunk);
    QCOMPARE(e.errors.count(), 0);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});

    // 65537: overflow, the chunk is dropped.
    QByteArray big(65537 - 6, 'n');
    big += ack();
    e.feed(big);
    QCOMPARE(e.errors.count(), 1);
    QCOMPARE(e.lastError(), QStringLiteral("Raw buffer overflow"));
    QCOMPARE(e.writes.count(), 0);
    QCOMPARE(g_criticals.size(), 1);
    QVERIFY2(criticalLine(75, QStringLiteral("[HYTORC-COMM] Raw buffer overflow 65537 > 65536"))
                 .match(g_criticals.first())
                 .hasMatch(),
             qPrintable(g_criticals.first()));
    e.feed(ack()); // still state 2: the request's ACK is taken
    e.feed(reply("fine\r\n", true));
    QCOMPARE(e.lastData(), QStringList{"fine"});
}

void TestHcpComm::overflowCountsKeptBytes()
{
    // The start of a last reply frame of 1023 bytes waits in the buffer (4 bytes).
    const QByteArray start = hex("00 00 8B FF");
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(start);
    e.feed(QByteArray(65532, 'n')); // 4 + 65532 = 65536: accepted, the frame completes
    QCOMPARE(e.errors.count(), 0);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QCOMPARE(e.lastData(), QStringList{QString(1023, QLatin1Char('n'))});

    QVERIFY(e.toAwaitingReply(c_toolInfo, 2));
    e.feed(start);
    e.feed(QByteArray(65533, 'n')); // 4 + 65533 = 65537: overflow, buffer emptied
    QCOMPARE(e.lastError(), QStringLiteral("Raw buffer overflow"));
    QVERIFY(g_criticals.last().endsWith(QStringLiteral("Raw buffer overflow 65537 > 65536")));
    e.feed(QByteArray(1025, 'n')); // would have completed the frame had it been kept
    QCOMPARE(e.writes.count(), 0);
    QCOMPARE(e.data.count(), 1);
}

void TestHcpComm::retryFromEveryStateKeepsLines()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    e.expireTimer(); // state 1: header again
    QCOMPARE(e.takeWrites(), QList<QByteArray>{header()});
    e.feed(ack());
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    e.expireTimer(); // state 2: header again
    QCOMPARE(e.takeWrites(), QList<QByteArray>{header()});
    e.feed(ack());
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)}); // same sequence
    e.feed(ack());
    e.feed(reply("first\r\n", false));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    e.expireTimer(); // state 3: header again, the lines gathered so far are kept
    QCOMPARE(e.takeWrites(), QList<QByteArray>{header()});
    e.feed(ack());
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    e.feed(ack());
    e.feed(reply("first\r\n", false));
    e.feed(reply("second\r\n", true));
    QCOMPARE(e.lastData(), (QStringList{"first", "first", "second"}));
    QCOMPARE(e.errors.count(), 0);
}

void TestHcpComm::fiveRetriesThenTimeout()
{
    Engine e;
    QVERIFY(e.toHeaderSent());
    for (int retry = 1; retry <= 5; ++retry) {
        e.expireTimer();
        QCOMPARE(e.takeWrites(), QList<QByteArray>{header()});
    }
    e.expireTimer();
    QCOMPARE(e.writes.count(), 0);
    QCOMPARE(e.errors.count(), 1);
    QCOMPARE(e.lastError(), QStringLiteral("Tool communication timeout"));
    // The state stays: the header's ACK still sends the request.
    e.feed(ack());
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(c_toolInfo, 1)});
    // A new request starts its count again.
    e.comm->reset();
    QVERIFY(e.toHeaderSent());
    e.expireTimer();
    QCOMPARE(e.takeWrites(), QList<QByteArray>{header()});
}

void TestHcpComm::timerInState0DoesNothing()
{
    Engine e;
    e.expireTimer();
    QCOMPARE(e.signalCount(), 0);
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("x\r\n", true));
    e.takeWrites();
    e.expireTimer(); // back in state 0 after the reply
    QCOMPARE(e.writes.count(), 0);
    QCOMPARE(e.errors.count(), 0);
}

void TestHcpComm::resetForgetsTransaction()
{
    const QByteArray rest = reply("rest\r\n", true);
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("partial\r\n", false));
    e.feed(toolEvent("EV1\r\n", false));
    e.comm->onRawData(rest.left(7), 500); // an incomplete frame in the buffer
    e.takeWrites();
    e.comm->reset();

    e.comm->onRawData(rest.mid(7), 500); // the last chunk number survives: ignored
    QCOMPARE(e.signalCount(), 0);
    e.feed(rest.mid(7));                   // the frame's start is gone: its rest alone is nothing
    e.feed(reply("after reset\r\n", true)); // state 0: ignored
    QCOMPARE(e.signalCount(), 0);
    e.expireTimer(); // state 0: the timer does nothing
    QCOMPARE(e.signalCount(), 0);

    // Event lines survive a reset.
    e.feed(toolEvent("EV2\r\n", true));
    QCOMPARE(e.lastEvent(), (QStringList{"EV1", "EV2"}));
    e.takeWrites();

    // The sequence starts again at 1; the lines of the old transaction are gone.
    QVERIFY(e.toAwaitingReply(c_toolInfo, 1));
    e.feed(reply("new\r\n", true));
    QCOMPARE(e.lastData(), QStringList{"new"});
}

void TestHcpComm::sendRequestClearsBufferAndLines()
{
    Engine e;
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("old line\r\n", false));
    e.feed(ack().left(4));
    e.takeWrites();
    QVERIFY(e.toRequestSent("GET JOBS PROFILE\r\n", 2));
    e.feed(ack().mid(4)); // nothing: the 4 bytes were dropped by sendRequest
    QCOMPARE(e.writes.count(), 0);
    e.feed(ack());
    e.feed(reply("new line\r\n", true));
    QCOMPARE(e.lastData(), QStringList{"new line"});
}

void TestHcpComm::ownerGone()
{
    QObject* owner = new QObject;
    QScopedPointer<HytorcHcpComm> comm(new HytorcHcpComm(owner));
    QSignalSpy writes(comm.data(), &HytorcHcpComm::sigWriteRequest);
    comm->setParent(nullptr);
    delete owner;
    comm->sendRequest(QStringLiteral("GET ADMIN TOOL_INFO"));
    QTest::qWait(400);
    QCOMPARE(writes.count(), 0); // no header
    QVERIFY(QMetaObject::invokeMethod(comm.data(), "onRetryTimeout", Qt::DirectConnection));
    QCOMPARE(writes.count(), 0); // state 0: nothing
    // Tool frames are still handled: an event is acknowledged.
    QSignalSpy events(comm.data(), &HytorcHcpComm::sigEventReady);
    comm->onRawData(toolEvent("E\r\n"), 1);
    QCOMPARE(events.count(), 1);
}

void TestHcpComm::resetFromSlotDropsRestOfChunk()
{
    // A command resets its engine from the slot of sigDataReady; the frames behind the
    // last reply frame in the same chunk are then forgotten with the buffer.
    Engine e;
    QObject::connect(e.comm, &HytorcHcpComm::sigDataReady, e.comm, [&e]() { e.comm->reset(); });
    QVERIFY(e.toAwaitingReply());
    e.feed(reply("done\r\n", true) + toolEvent("E\r\n") + reply("x\r\n", true).left(5));
    QCOMPARE(e.data.count(), 1);
    QCOMPARE(e.events.count(), 0);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    e.feed(toolEvent("F\r\n")); // would have been swallowed by the 5 bytes had they been kept
    QCOMPARE(e.lastEvent(), QStringList{"F"});
}

void TestHcpComm::synchronousLoopback()
{
    // A peer that answers from inside sigWriteRequest (direct connection): its chunks
    // arrive while the engine is still handling a frame, and are taken in order.
    Engine e;
    int number = 1000;
    int acks = 0;
    QObject::connect(e.comm, &HytorcHcpComm::sigWriteRequest, e.comm, [&](const QByteArray& packet) {
        if (packet == header()) {
            e.comm->onRawData(ack().left(2), ++number);
            e.comm->onRawData(ack().mid(2), ++number);
        } else if (packet == request(c_toolInfo, 1)) {
            e.comm->onRawData(ack() + reply("one\r\n", false), ++number);
        } else if (packet == ack() && ++acks == 1) {
            e.comm->onRawData(toolEvent("EV\r\n") + reply("two\r\n", true), ++number);
        }
    });
    e.comm->sendRequest(QString::fromLatin1(c_toolInfo));
    QTRY_COMPARE_WITH_TIMEOUT(e.data.count(), 1, 1000);
    QCOMPARE(e.lastData(), (QStringList{"one", "two"}));
    QCOMPARE(e.lastEvent(), QStringList{"EV"});
    QCOMPARE(e.takeWrites(), (QList<QByteArray>{header(), request(c_toolInfo, 1), ack(), ack(), ack()}));
}

QTEST_GUILESS_MAIN(TestHcpComm)
#include "test_hcp_comm.moc"
