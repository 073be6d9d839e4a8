// The HCP link. The frame codec: worked frames, decoding, extraction from the stream, line
// judging. The transaction engine, driven by tool frames: every byte it asks to write is
// checked. The retry timer is expired on demand through its slot and its intervals are read off it.
#include "hytorc_hcp_comm.h"
#include "hytorc_hcp_frame.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// The decoded map as one line: only the keys present, in their order.
QString mapText(const QVariantMap& map)
{
    QStringList parts;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        parts << it.key() + '=' + (it.value().userType() == QMetaType::QByteArray ? it.value().toByteArray().toHex()
                                                                                   : it.value().toString());
    return parts.join(' ');
}

const QByteArray c_toolInfo = "GET ADMIN TOOL_INFO\r\n";
const QByteArray c_header = hex("00 01 80 05 55 49 43 0D 0A FE 82");
QByteArray ack() { return HytorcHcpFrame::buildAckFrame(); }
QByteArray reply(const QByteArray& payload, bool last = true)
{
    return HytorcHcpFrame::encodeFrame(0x00, 0x80 | (last ? 0x08 : 0), payload);
}
QByteArray toolEvent(const QByteArray& payload, bool last = true)
{
    return HytorcHcpFrame::encodeFrame(0x02, 0x80 | (last ? 0x08 : 0), payload);
}
QByteArray request(int sequence, const QByteArray& text = c_toolInfo)
{
    return HytorcHcpFrame::buildFrame(text, true, false, true, sequence);
}
QList<QByteArray> acks(int count) { return QVector<QByteArray>(count, ack()).toList(); }

QStringList g_criticals;
void captureCriticals(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtCriticalMsg)
        g_criticals << message;
}

// The layout of the critical lines, up to the message parts.
bool isCriticalLine(const QString& text, int line, const QString& message)
{
    return QRegularExpression(QStringLiteral("^\\n \"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}\" ;\\t "
                                             "Thread = QThread\\(0x[0-9a-f]+[^;]*\\) ;\\t "
                                             "This = HytorcHcpComm\\(0x[0-9a-f]+\\) ;\\t "
                                             "plugins/p_device_hytorc/source/hytorc_hcp_comm ;\\t %1 ;\\t %2$")
                                  .arg(line)
                                  .arg(QRegularExpression::escape(message)))
        .match(text)
        .hasMatch();
}

// An engine owned by a plain object, every signal recorded.
struct Engine {
    QScopedPointer<QObject> owner{new QObject};
    HytorcHcpComm* comm{new HytorcHcpComm(owner.data())};
    QSignalSpy writes{comm, &HytorcHcpComm::sigWriteRequest};
    QSignalSpy data{comm, &HytorcHcpComm::sigDataReady};
    QSignalSpy events{comm, &HytorcHcpComm::sigEventReady};
    QSignalSpy errors{comm, &HytorcHcpComm::sigError};
    QSignalSpy junk{comm, &HytorcHcpComm::sigJunkFrameDetected};
    int chunkNumber = 0;

    void feed(const QByteArray& bytes) { comm->onRawData(bytes, ++chunkNumber); }
    QList<QByteArray> takeWrites()
    {
        QList<QByteArray> packets;
        for (const QList<QVariant>& args : qAsConst(writes))
            packets << args.at(0).toByteArray();
        writes.clear();
        return packets;
    }

    QStringList lastData() const { return data.isEmpty() ? QStringList() : data.last().at(0).toStringList(); }
    QStringList lastEvent() const { return events.isEmpty() ? QStringList() : events.last().at(0).toStringList(); }
    QString lastError() const { return errors.isEmpty() ? QString() : errors.last().at(0).toString(); }
    int signalCount() const { return writes.count() + data.count() + events.count() + errors.count() + junk.count(); }
    // The retry timer's interval when it runs, 0 when it is stopped.
    int timer() const
    {
        const QTimer* t = comm->findChild<QTimer*>();
        return t && t->isActive() ? t->interval() : 0;
    }

    void expireTimer() { QMetaObject::invokeMethod(comm, "onRetryTimeout", Qt::DirectConnection); }

    // Drives a fresh transaction into `state`: 1 header sent, 2 request sent, 3 awaiting reply.
    bool toState(int state, int sequence = 1, const QByteArray& text = c_toolInfo)
    {
        if (state == 0)
            return true;
        comm->sendRequest(QString::fromUtf8(text));
        if (!writes.wait(2000) || takeWrites() != QList<QByteArray>{c_header} || timer() != 3000)
            return false;
        if (state >= 2) {
            feed(ack());
            if (takeWrites() != QList<QByteArray>{request(sequence, text.trimmed() + "\r\n")} || timer() != 4000)
                return false;
        }
        if (state == 3)
            feed(ack());
        return state < 3 || (writes.isEmpty() && timer() == 8000);
    }
};

} // namespace

class TestHcp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qInstallMessageHandler(captureCriticals); }
    void init() { g_criticals.clear(); }
    void workedFrames()
    {
        const auto check = [](const QByteArray& got, const char* want) { QCOMPARE(got.toHex(' '), hex(want).toHex(' ')); };
        check(HytorcHcpFrame::buildFrame("A", false, false, false, 7), "00 00 B0 01 41 FF 0E");  // seq 3, no flags
        // The length cut to 10 bits.
        check(HytorcHcpFrame::buildFrame(QByteArray(1025, 'x'), false, false, true, 0).left(4), "00 00 88 01");
        check(HytorcHcpFrame::encodeFrame(0x02, 0x83, QByteArray(300, 'a')).left(4), "00 02 81 2C");
    }

    void parse()
    {
        const auto check = [](const QByteArray& frame, const QString& map) {
            QCOMPARE(mapText(HytorcHcpFrame::parseFrame(frame)), map);
        };
        // Fewer than 6 bytes; N=300 with 200 there; N=0; no checksum; a wrong one; a data frame never an ACK.
        check(hex("00 01 48 00 FF"), "valid=false");
        check(hex("00 02 89 2C") + QByteArray(200, 'p'), "isAck=false isLast=true isToolInitiated=true valid=false");
        check(hex("00 00 80 00 FF 80"), "isAck=false isLast=false isToolInitiated=false payload= valid=true");
        check(hex("00 00 80 02 41 42"), "isAck=false isLast=false isToolInitiated=false payload=4142 valid=true");
        check(hex("00 00 88 01 41 00 00"), "isAck=false isLast=true isToolInitiated=false payload=41 valid=true");
        check(hex("00 01 C8 00 FF 37"), "isAck=false isLast=true isToolInitiated=false payload= valid=true");
        check(toolEvent("E"), "isAck=false isLast=true isToolInitiated=true payload=45 valid=true");
    }

    void extract()
    {
        const auto check = [](QByteArray buffer, const QList<QByteArray>& frames, const QByteArray& rest) {
            QList<QByteArray> got;
            HytorcHcpFrame::extractFrames(buffer, [&got](const QByteArray& frame) { got << frame; });
            QCOMPARE(got, frames);
            QCOMPARE(buffer.toHex(' '), rest.toHex(' '));
        };
        const QByteArray a = reply("A\r\n", false);
        const QByteArray b = reply("B\r\n");
        const QByteArray longFrame = reply(QByteArray(300, 'L'));
        check(hex("41 42 43 44 45"), {}, hex("41 42 43 44 45"));  // 5 bytes kept
        check("0123456789", {}, {});  // no start: emptied
        check("ABC" + a + "noise!" + b, {a, b}, {});
        check("xyz" + b.left(5) + "q", {}, b.left(5) + "q");  // noise before a partial
        check(hex("41 00 7E 80 02") + "XYZZ" + b, {hex("00 7E 80 02") + "XYZZ", b}, {});  // a stray 0x00 is a start
        check(hex("41 00 01 83 FF") + b, {}, hex("00 01 83 FF") + b);  // and may swallow
        check(longFrame.left(305), {}, longFrame.left(305));
        check(ack() + "abcde", {ack()}, "abcde");  // short tail kept
        check(ack() + "abcdef", {ack()}, {});  // 6-byte tail searched
    }

    void payloadLines()
    {
        const auto check = [](const QByteArray& payload, const QStringList& lines) {
            QCOMPARE(HytorcHcpFrame::payloadLines(payload), lines);
        };
        check("RESPONSE\r\n\r\n  model X \r\r\n\tserial 1\n", {"RESPONSE", "model X", "serial 1"});  // runs of CR LF, trimmed
        check(QByteArray("one\r\ntwo\0three\r\n", 16), {"one", "two"});  // up to the NUL
        check(QByteArray("\0abc", 4), {});
        check("  \r\n \t \r\n", {});
        check("Drehmoment \xC3\x9C" "ber\r\n 12,5 N\xC2\xB7m\xC2\xA0\r\n",
              {QString::fromUtf8("Drehmoment \xC3\x9C" "ber"), QString::fromUtf8("12,5 N\xC2\xB7m")});
    }

    void judgeReply()
    {
        const auto check = [](const QStringList& lines, const QStringList& kept, const QString& error = QString()) {
            QStringList got{"before"};
            QString gotError;
            QCOMPARE(HytorcHcpFrame::judgeReplyLines(lines, " GET ADMIN TOOL_INFO\r\n", &got, &gotError), error.isEmpty());
            QCOMPARE(got, QStringList{"before"} + kept);
            QCOMPARE(gotError, error);
        };
        // Framing words and the echo dropped.
        check({"HCD", "RESPONSE", "UIC", "GET ADMIN TOOL_INFO", "model X", "ERRORCODE,0", "PASSED", "serial 9"},
              {"model X", "serial 9"});
        check({"RESPONSE", "ERRORCODE,3"}, {}, "Tool returned error: ERRORCODE,3");
        check({"ERRORCODE"}, {}, "Tool returned error: ERRORCODE");
        check({"a", "ERRORCODE,7", "b", "FAILED"}, {"a"}, "Tool returned error: ERRORCODE,7");  // stops at the first error
        check({"x", "FAILED"}, {"x"}, "Tool returned error: FAILED");
        // Lower case, and words inside lines, are data.
        check({"passed", "failed", "errorcode,1", "hcd", "uic"}, {"passed", "failed", "errorcode,1", "hcd", "uic"});
        check({"NOT FAILED", "PASSED!"}, {"NOT FAILED", "PASSED!"});
        check({"  PASSED ", "\tv 1 ", ""}, {"v 1"});
    }

    void fullTransaction()
    {
        Engine e;
        QElapsedTimer clock;
        clock.start();
        QVERIFY(e.toState(1));
        QVERIFY2(clock.elapsed() >= 190, qPrintable(QString::number(clock.elapsed())));
        e.feed(ack());
        QCOMPARE(e.takeWrites(), QList<QByteArray>{hex("00 00 9C 15") + c_toolInfo + hex("F9 E6")});
        e.feed(ack());
        QCOMPARE(e.timer(), 8000);
        e.feed(reply("GET ADMIN TOOL_INFO\r\nRESPONSE\r\nHT-BTi 1\r\nSN 0042\r\nERRORCODE,0\r\nPASSED\r\n"));
        QCOMPARE(e.takeWrites(), QList<QByteArray>{hex("00 01 48 00 FF B7")});
        QCOMPARE(e.data.count(), 1);
        QCOMPARE(e.lastData(), (QStringList{"HT-BTi 1", "SN 0042"}));
        QCOMPARE(e.signalCount(), 1);
        QCOMPARE(e.timer(), 0);
        // Sequence numbers go on without a reset, the request trimmed; a reset starts them at 1.
        for (int sequence : {2, 3, 0, 1}) {
            QVERIFY(e.toState(3, sequence, "  GET JOBS PROFILE \t"));
            e.feed(reply("done\r\n"));
            e.takeWrites();
        }
        e.comm->reset();
        QVERIFY(e.toState(2, 1));
    }

    void replyInFramesAndChunks_data()
    {
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<int>("acked");
        QList<QByteArray> pieces;
        const QByteArray longFrame = reply(QByteArray(150, 'a') + "\r\n" + QByteArray(150, 'b'));
        for (int at = 0; at < longFrame.size(); at += 37)
            pieces << longFrame.mid(at, 37);
        QTest::newRow("three frames") << QList<QByteArray>{reply("RESPONSE\r\n1\r\n", false), reply("2\r\n3\r\n", false),
                                                           reply("4\r\nPASSED\r\n")}
                                      << QStringList{"1", "2", "3", "4"} << 3;
        QTest::newRow("long frame in pieces") << pieces << QStringList{QString(150, 'a'), QString(150, 'b')} << 1;
        QTest::newRow("NACK ends it") << QList<QByteArray>{reply("gathered\r\n", false), HytorcHcpFrame::buildNackFrame()}
                                      << QStringList{"gathered"} << 2;
    }

    void replyInFramesAndChunks()
    {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(QStringList, lines);
        QFETCH(int, acked);
        Engine e;
        QVERIFY(e.toState(3));
        for (const QByteArray& chunk : chunks) {
            QCOMPARE(e.data.count(), 0);
            e.feed(chunk);
        }
        QCOMPARE(e.takeWrites(), acks(acked));
        QCOMPARE(e.data.count(), 1);
        QCOMPARE(e.lastData(), lines);
        QCOMPARE(e.errors.count(), 0);
    }

    void ignoredFrames_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<QByteArray>("frame");
        for (int state = 0; state <= 2; ++state) {
            QTest::addRow("reply data in state %d", state) << state << reply("stray\r\n");
            QTest::addRow("NACK in state %d", state) << state << HytorcHcpFrame::buildNackFrame();
        }
        QTest::newRow("ACK in state 0") << 0 << ack();
        QTest::newRow("ACK in state 3") << 3 << ack();
        QTest::newRow("6 bytes of FF never junk") << 3 << hex("FF FF FF FF FF FF");
        QTest::newRow("5 of 7 bytes FF not junk") << 3 << hex("41 42 FF FF FF FF FF");
    }

    void ignoredFrames()
    {
        QFETCH(int, state);
        QFETCH(QByteArray, frame);
        Engine e;
        QVERIFY(e.toState(state));
        const int timer = e.timer();
        e.feed(frame);
        QCOMPARE(e.signalCount(), 0);
        QCOMPARE(e.timer(), timer);
        if (state == 0)
            return;
        // The transaction goes on as if nothing had come; "stray" is never collected.
        if (state < 3)
            QVERIFY(e.toState(3, 2));
        e.feed(reply("kept\r\n"));
        QCOMPARE(e.lastData(), QStringList{"kept"});
    }

    void eventInEveryState_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<bool>("byPrefix");
        for (int state = 0; state <= 3; ++state) {
            QTest::addRow("state %d, tool bit", state) << state << false;
            QTest::addRow("state %d, SET EVENT LOG", state) << state << true;
        }
    }

    void eventInEveryState()
    {
        QFETCH(int, state);
        QFETCH(bool, byPrefix);
        const QByteArray payload = "SET EVENT LOG\r\nHCD\r\nRESPONSE\r\nERRORCODE,0\r\nTQ,1\r\n";
        Engine e;
        QVERIFY(e.toState(state));
        const int timer = e.timer();
        e.feed(byPrefix ? reply(payload + "UIC\r\n", false) : toolEvent(payload, false));
        e.feed(toolEvent("PASSED\r\n\r\nFAILED\r\nERRORCODE,2\r\n"));  // a report's ERRORCODE is no error
        QCOMPARE(e.takeWrites(), acks(2));
        QCOMPARE(e.events.count(), 1);
        QCOMPARE(e.lastEvent(), (byPrefix ? QStringList{"SET EVENT LOG", "TQ,1", "UIC", "PASSED", "FAILED", "ERRORCODE,2"}
                                          : QStringList{"SET EVENT LOG", "TQ,1", "PASSED", "FAILED", "ERRORCODE,2"}));
        QCOMPARE(e.data.count() + e.errors.count(), 0);
        QCOMPARE(e.timer(), timer); // the transaction's state and timer are not touched
    }

    void eventLinesCapped()
    {
        Engine e;
        QByteArray many;
        QStringList newest;
        for (int i = 0; i < 130; ++i) {
            many += "L" + QByteArray::number(i) + "\r\n";
            if (i >= 30)
                newest << QStringLiteral("L%1").arg(i);
        }
        const int cut = many.indexOf("\r\n", 590) + 2;
        e.feed(toolEvent(many.left(cut), false));
        e.feed(toolEvent(many.mid(cut)));
        QCOMPARE(e.lastEvent(), newest);
        e.feed(toolEvent("D\r\n")); // emptied after each complete message
        QCOMPARE(e.lastEvent(), QStringList{"D"});
    }

    void chunkNumbers()
    {
        Engine e;
        QVERIFY(e.toState(1));
        e.comm->onRawData(ack(), 7);
        QCOMPARE(e.takeWrites().size(), 1); // request sent, state 2
        e.comm->onRawData(ack(), 7);        // delivered twice: ignored
        QCOMPARE(e.timer(), 4000);
        e.comm->onRawData(ack(), 8);
        e.comm->onRawData(reply("A\r\n", false), 7); // 7 after 8: taken
        e.comm->onRawData(reply("A\r\n", false), 7);
        e.comm->onRawData(QByteArray(), 9);          // an empty chunk still takes its number
        e.comm->onRawData(reply("B\r\n"), 9);
        e.comm->onRawData(reply("C\r\n"), -1);
        e.comm->onRawData(toolEvent("E1\r\n"), -1);  // -1 is never a duplicate
        e.comm->onRawData(toolEvent("E2\r\n"), -1);
        QCOMPARE(e.takeWrites(), acks(4));
        QCOMPARE(e.lastData(), (QStringList{"A", "C"}));
        QCOMPARE(e.events.count(), 2);
    }

    void purges_data()
    {
        // Chunks fed in state 3: the critical line they bring (0 for none) and the ACKs sent.
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<int>("line");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("acked");
        const QByteArray lost = reply("lost\r\n");
        QTest::newRow("junk, 6 of 7") << QList<QByteArray>{lost.left(5), hex("FF FF 41 FF FF FF FF"), lost.mid(5)} << 67
                                      << "Junk frame detected (Saturation 6 / 7 ). Purging buffer." << 0;
        QTest::newRow("junk, 0x00 too") << QList<QByteArray>{hex("00 00 00 FF FF FF 00 00")} << 67
                                        << "Junk frame detected (Saturation 8 / 8 ). Purging buffer." << 0;
        const QByteArray start = hex("00 00 8B FF"); // a last reply frame of 1023 bytes
        QTest::newRow("65536 at once") << QList<QByteArray>{QByteArray(65530, 'n') + lost.left(6)} << 0 << "" << 0;
        QTest::newRow("65537 at once") << QList<QByteArray>{QByteArray(65537, 'n')} << 75
                                       << "Raw buffer overflow 65537 > 65536" << 0;
        QTest::newRow("kept 4 + 65532") << QList<QByteArray>{start, QByteArray(65532, 'n')} << 0 << "" << 1;
        QTest::newRow("kept 4 + 65533") << QList<QByteArray>{start, QByteArray(65533, 'n')} << 75
                                        << "Raw buffer overflow 65537 > 65536" << 0;
        // The reply itself is bounded alike: 64 frames of 1023 bytes are 65472, one more is past.
        const QByteArray frame = reply(QByteArray(1021, 'r') + "\r\n", false);
        QTest::newRow("reply past 65536") << QVector<QByteArray>(65, frame).toList() << 75
                                          << "Raw buffer overflow 66495 > 65536" << 64;
    }

    void purges()
    {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(int, line);
        QFETCH(QString, message);
        QFETCH(int, acked);
        Engine e;
        QVERIFY(e.toState(3));
        for (const QByteArray& chunk : chunks)
            e.feed(chunk);
        QCOMPARE(e.takeWrites(), acks(acked));
        QCOMPARE(e.junk.count(), int(line == 67));
        QCOMPARE(e.lastError(), line == 75 ? QStringLiteral("Raw buffer overflow") : QString());
        QCOMPARE(g_criticals.size(), int(line != 0));
        if (line != 0)
            QVERIFY2(isCriticalLine(g_criticals.first(), line, "[HYTORC-COMM] " + message), qPrintable(g_criticals.first()));
        if (line == 0)
            return;
        // The buffer (and the reply so far) went; the transaction's state is kept.
        e.feed(reply("fine\r\n"));
        QCOMPARE(e.lastData(), QStringList{"fine"});
    }

    void retriesKeepLinesThenTimeout()
    {
        Engine e;
        QVERIFY(e.toState(1));
        e.expireTimer(); // state 1: header again
        QCOMPARE(e.takeWrites(), QList<QByteArray>{c_header});
        QCOMPARE(e.timer(), 3000);
        e.feed(ack());
        e.takeWrites();
        e.expireTimer(); // state 2: header again, same sequence after it
        QCOMPARE(e.takeWrites(), QList<QByteArray>{c_header});
        e.feed(ack());
        QCOMPARE(e.takeWrites(), QList<QByteArray>{request(1)});
        e.feed(ack());
        e.feed(reply("first\r\n", false));
        QCOMPARE(e.timer(), 8000);
        e.expireTimer(); // state 3: header again, the lines gathered so far kept
        QCOMPARE(e.timer(), 3000);
        e.expireTimer();
        e.expireTimer(); // retry 5
        QCOMPARE(e.takeWrites(), (QList<QByteArray>{ack(), c_header, c_header, c_header}));
        e.expireTimer();
        QCOMPARE(e.lastError(), QStringLiteral("Tool communication timeout"));
        QCOMPARE(e.writes.count(), 0);
        // The state stays: the header's ACK still sends the request, and the reply comes.
        e.feed(ack());
        e.feed(ack());
        e.feed(reply("second\r\n"));
        QCOMPARE(e.lastData(), (QStringList{"first", "second"}));
        e.takeWrites();
        e.expireTimer(); // state 0: nothing
        QCOMPARE(e.signalCount(), 2);
    }

    void resetAndNewRequestForget()
    {
        const QByteArray rest = reply("rest\r\n");
        Engine e;
        QVERIFY(e.toState(3));
        e.feed(reply("partial\r\n", false));
        e.feed(toolEvent("EV1\r\n", false));
        e.comm->onRawData(rest.left(7), 500);
        e.comm->reset();
        QCOMPARE(e.timer(), 0);
        e.takeWrites();
        e.comm->onRawData(rest.mid(7), 500); // the chunk number survives a reset: ignored
        e.feed(rest.mid(7));                 // the frame's start is gone
        e.feed(reply("after reset\r\n"));    // state 0
        QCOMPARE(e.signalCount(), 0);
        e.feed(toolEvent("EV2\r\n"));        // event lines survive a reset
        QCOMPARE(e.lastEvent(), (QStringList{"EV1", "EV2"}));
        e.takeWrites();

        QVERIFY(e.toState(3, 1)); // the sequence starts again at 1
        e.feed(reply("old\r\n", false));
        e.feed(ack().left(4));
        e.takeWrites();
        QVERIFY(e.toState(2, 2)); // a new request drops the old lines and buffered bytes
        e.feed(ack().mid(4));
        QCOMPARE(e.writes.count(), 0);
        e.feed(ack());
        e.feed(reply("new\r\n"));
        QCOMPARE(e.lastData(), QStringList{"new"});
    }

    void reentrantPeer()
    {
        // A command resets its engine from sigDataReady: what followed the last frame in the
        // same chunk goes with the buffer. A peer answering from inside sigWriteRequest feeds
        // chunks while a frame is being handled: they are taken in order.
        Engine e;
        QObject::connect(e.comm, &HytorcHcpComm::sigDataReady, e.comm, [&e]() { e.comm->reset(); });
        int acked = 0;
        QObject::connect(e.comm, &HytorcHcpComm::sigWriteRequest, e.comm, [&](const QByteArray& packet) {
            if (packet == c_header) {
                e.feed(ack().left(2));
                e.feed(ack().mid(2));
            } else if (packet == request(1)) {
                e.feed(ack() + reply("one\r\n", false));
            } else if (packet == ack() && ++acked == 1) {
                e.feed(toolEvent("EV\r\n") + reply("two\r\n") + toolEvent("lost\r\n") + reply("x").left(5));
            }
        });
        e.comm->sendRequest(QString::fromLatin1(c_toolInfo));
        QTRY_COMPARE_WITH_TIMEOUT(e.data.count(), 1, 2000);
        QCOMPARE(e.lastData(), (QStringList{"one", "two"}));
        QCOMPARE(e.lastEvent(), QStringList{"EV"});
        QCOMPARE(e.takeWrites(), (QList<QByteArray>{c_header, request(1), ack(), ack(), ack()}));
        e.feed(toolEvent("F\r\n")); // would have been swallowed by the 5 bytes had they been kept
        QCOMPARE(e.lastEvent(), QStringList{"F"});
    }
};

QTEST_GUILESS_MAIN(TestHcp)
#include "test_hcp.moc"
