// HCP-e frame codec and line judging.
#include "hytorc_hcp_frame.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QtTest>

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// A frame as the tool would send it: any link flags, any frame flags.
QByteArray toolFrame(quint8 linkFlags, quint8 frameFlags, const QByteArray& payload)
{
    return HytorcHcpFrame::encodeFrame(linkFlags, frameFlags, payload);
}

QList<QByteArray> extractAll(QByteArray& buffer)
{
    QList<QByteArray> frames;
    HytorcHcpFrame::extractFrames(buffer, [&frames](const QByteArray& frame) { frames << frame; });
    return frames;
}

// Feeds `stream` piece by piece (cut at `cuts`) and extracts after each piece.
QList<QByteArray> extractInPieces(const QByteArray& stream, const QList<int>& cuts, QByteArray* rest)
{
    QByteArray buffer;
    QList<QByteArray> frames;
    int from = 0;
    QList<int> ends = cuts;
    ends << stream.size();
    for (int end : ends) {
        buffer.append(stream.mid(from, end - from));
        frames << extractAll(buffer);
        from = end;
    }
    *rest = buffer;
    return frames;
}

quint16 sum16(const QByteArray& frame)
{
    // Bytes 0..3+N plus the checksum read as one 16-bit number.
    quint32 sum = 0;
    for (int i = 0; i < frame.size() - 2; ++i)
        sum += quint8(frame.at(i));
    sum += (quint8(frame.at(frame.size() - 2)) << 8) | quint8(frame.at(frame.size() - 1));
    return quint16(sum);
}

QByteArray randomPayload(QRandomGenerator& rng, int size)
{
    QByteArray payload(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        payload[i] = char(rng.bounded(256));
    return payload;
}

// The general road of "payload to lines", written out with the line splitter.
QStringList referenceLines(const QByteArray& payload)
{
    const int nul = payload.indexOf('\0');
    const QString text = QString::fromUtf8(nul < 0 ? payload : payload.left(nul));
    QStringList lines;
    for (const QString& piece : text.split(QRegularExpression(QStringLiteral("[\r\n]+")), Qt::SkipEmptyParts)) {
        if (!piece.trimmed().isEmpty())
            lines << piece.trimmed();
    }
    return lines;
}

} // namespace

class TestHcpFrame : public QObject
{
    Q_OBJECT

private slots:
    void workedFrames_data();
    void workedFrames();
    void roundTripEveryFlagSequenceAndLength();
    void encoderCutsLongLengthsToTenBits();
    void toolSideFramesAndHeader();
    void parseShortAndIncomplete();
    void parseControlFrames();
    void parseIgnoresChecksum();

    void extractKeepsShortBuffer();
    void extractCutAtEveryByteBoundary();
    void extractByteByByte();
    void extractNoiseBeforeAndBetween();
    void extractStrayZeroInNoise();
    void extractLongFrameInPieces();
    void extractBufferWithoutStart();
    void extractKeepsShortTail();

    void payloadLinesSplitting();
    void payloadLinesMatchesRegexRoad();
    void judgeReply_data();
    void judgeReply();
    void judgeReplyStopsAtFirstError();
    void judgeEvents();
};

void TestHcpFrame::workedFrames_data()
{
    QTest::addColumn<QByteArray>("built");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("link header") << HytorcHcpFrame::buildFrame("UIC\r\n", false, true, false, 0)
                                 << hex("00 01 80 05 55 49 43 0D 0A FE 82");
    QTest::newRow("request seq 1") << HytorcHcpFrame::buildFrame("GET ADMIN TOOL_INFO\r\n", true, false, true, 1)
                                   << hex("00 00 9C 15") + QByteArray("GET ADMIN TOOL_INFO\r\n") + hex("F9 E6");
    QTest::newRow("keep-alive") << HytorcHcpFrame::buildFrame("GET STATE BATTERY\r\n", true, true, true, 0)
                                << hex("00 01 8C 13") + QByteArray("GET STATE BATTERY\r\n") + hex("FA 8D");
    QTest::newRow("ACK") << HytorcHcpFrame::buildAckFrame() << hex("00 01 48 00 FF B7");
    QTest::newRow("NACK") << HytorcHcpFrame::buildNackFrame() << hex("00 01 08 00 FF F7");
}

void TestHcpFrame::workedFrames()
{
    QFETCH(QByteArray, built);
    QFETCH(QByteArray, expected);
    QCOMPARE(built.toHex(' '), expected.toHex(' '));
    QCOMPARE(sum16(built), quint16(0));
}

void TestHcpFrame::roundTripEveryFlagSequenceAndLength()
{
    QRandomGenerator rng(42);
    const QByteArray pool = randomPayload(rng, 1023);
    for (int sequence = 0; sequence < 4; ++sequence) {
        for (int flags = 0; flags < 8; ++flags) {
            const bool command = flags & 1, link = flags & 2, last = flags & 4;
            for (int n = 0; n <= 1023; ++n) {
                const QByteArray payload = pool.left(n);
                const QByteArray frame = HytorcHcpFrame::buildFrame(payload, command, link, last, sequence);
                if (frame.size() != n + 6 || quint8(frame.at(0)) != 0 || sum16(frame) != 0)
                    QFAIL(qPrintable(QStringLiteral("bad frame seq %1 flags %2 n %3").arg(sequence).arg(flags).arg(n)));

                const QVariantMap map = HytorcHcpFrame::parseFrame(frame);
                if (map.size() != 5 || !map.value("valid").toBool() || map.value("isAck").toBool()
                    || map.value("isLast").toBool() != last || map.value("isToolInitiated").toBool()
                    || map.value("payload").toByteArray() != payload)
                    QFAIL(qPrintable(QStringLiteral("bad parse seq %1 flags %2 n %3").arg(sequence).arg(flags).arg(n)));

                HytorcHcpFrame::Header header;
                QVERIFY(HytorcHcpFrame::parseHeader(frame, &header));
                if (!header.isData() || header.isAck() || header.isLast() != last || header.isCommand() != command
                    || header.isLink() != link || header.isToolInitiated() || header.sequence() != sequence
                    || header.length != n)
                    QFAIL(qPrintable(QStringLiteral("bad header seq %1 flags %2 n %3").arg(sequence).arg(flags).arg(n)));
            }
        }
    }
}

void TestHcpFrame::encoderCutsLongLengthsToTenBits()
{
    const QByteArray payload(1024 + 5, 'x');
    const QByteArray frame = HytorcHcpFrame::buildFrame(payload, false, false, true, 0);
    QCOMPARE(frame.size(), 1024 + 5 + 6);
    QCOMPARE(quint8(frame.at(2)), quint8(0x88)); // length bits 9-8 are 0 ...
    QCOMPARE(quint8(frame.at(3)), quint8(5));    // ... and 7-0 give 5
    QCOMPARE(sum16(frame), quint16(0));
    QCOMPARE(HytorcHcpFrame::parseFrame(frame).value("payload").toByteArray(), QByteArray("xxxxx"));
}

void TestHcpFrame::toolSideFramesAndHeader()
{
    // Tool-initiated data frame, as the simulator builds it.
    const QByteArray event = toolFrame(HytorcHcpFrame::c_toolInitiatedFlag,
                                       HytorcHcpFrame::c_dataFlag | HytorcHcpFrame::c_lastFlag, "SET EVENT LOG\r\n");
    const QVariantMap map = HytorcHcpFrame::parseFrame(event);
    QVERIFY(map.value("valid").toBool());
    QVERIFY(map.value("isToolInitiated").toBool());
    QVERIFY(map.value("isLast").toBool());
    QVERIFY(!map.value("isAck").toBool());
    QCOMPARE(sum16(event), quint16(0));

    // encodeFrame fills the length bits itself, whatever the caller put there.
    const QByteArray frame = toolFrame(0x00, 0x80 | 0x03, QByteArray(300, 'a'));
    QCOMPARE(quint8(frame.at(2)), quint8(0x81));
    QCOMPARE(quint8(frame.at(3)), quint8(0x2C));

    HytorcHcpFrame::Header header;
    QVERIFY(!HytorcHcpFrame::parseHeader(hex("00 01 48"), &header));
    QVERIFY(HytorcHcpFrame::parseHeader(hex("00 03 B9 2C"), &header));
    QCOMPARE(header.length, 300);
    QCOMPARE(header.sequence(), 3);
    QVERIFY(header.isToolInitiated() && header.isLink() && header.isData() && header.isLast());
}

void TestHcpFrame::parseShortAndIncomplete()
{
    // Fewer than 6 bytes: only "valid".
    const QVariantMap tiny = HytorcHcpFrame::parseFrame(hex("00 01 48 00 FF"));
    QCOMPARE(tiny.keys(), QStringList{"valid"});
    QCOMPARE(tiny.value("valid").toBool(), false);

    // N = 300 with 200 bytes: not valid, the flags are set, no payload.
    const QByteArray partial = hex("00 02 89 2C") + QByteArray(200, 'p');
    const QVariantMap map = HytorcHcpFrame::parseFrame(partial);
    QCOMPARE(map.value("valid").toBool(), false);
    QVERIFY(map.value("isLast").toBool());
    QVERIFY(map.value("isToolInitiated").toBool());
    QVERIFY(!map.contains("payload"));

    // N = 0 in 6 bytes: valid, empty payload.
    const QVariantMap empty = HytorcHcpFrame::parseFrame(hex("00 00 80 00 FF 80"));
    QVERIFY(empty.value("valid").toBool());
    QVERIFY(empty.value("payload").toByteArray().isEmpty());

    // Payload complete, checksum missing: valid.
    const QVariantMap noChecksum = HytorcHcpFrame::parseFrame(hex("00 00 80 02 41 42"));
    QVERIFY(noChecksum.value("valid").toBool());
    QCOMPARE(noChecksum.value("payload").toByteArray(), QByteArray("AB"));
}

void TestHcpFrame::parseControlFrames()
{
    const QVariantMap ack = HytorcHcpFrame::parseFrame(HytorcHcpFrame::buildAckFrame());
    QVERIFY(ack.value("valid").toBool());
    QVERIFY(ack.value("isAck").toBool());
    QVERIFY(ack.value("isLast").toBool());

    const QVariantMap nack = HytorcHcpFrame::parseFrame(HytorcHcpFrame::buildNackFrame());
    QVERIFY(nack.value("valid").toBool());
    QVERIFY(!nack.value("isAck").toBool());
    QVERIFY(nack.value("isLast").toBool());
    QVERIFY(nack.value("payload").toByteArray().isEmpty());

    // Bit 7 set: a data frame, never an ACK, whatever bit 6 says.
    const QVariantMap data = HytorcHcpFrame::parseFrame(hex("00 01 C8 00 FF 37"));
    QVERIFY(data.value("valid").toBool());
    QVERIFY(!data.value("isAck").toBool());
}

void TestHcpFrame::parseIgnoresChecksum()
{
    QByteArray frame = HytorcHcpFrame::buildFrame("HELLO\r\n", false, false, true, 2);
    frame[frame.size() - 1] = char(frame.at(frame.size() - 1) ^ 0x5A);
    const QVariantMap map = HytorcHcpFrame::parseFrame(frame);
    QVERIFY(map.value("valid").toBool());
    QCOMPARE(map.value("payload").toByteArray(), QByteArray("HELLO\r\n"));
}

void TestHcpFrame::extractKeepsShortBuffer()
{
    QByteArray buffer = hex("41 42 43 44 45"); // 5 bytes, no start: kept anyway
    QVERIFY(extractAll(buffer).isEmpty());
    QCOMPARE(buffer, hex("41 42 43 44 45"));
}

void TestHcpFrame::extractCutAtEveryByteBoundary()
{
    const QList<QByteArray> frames{
        HytorcHcpFrame::buildAckFrame(),
        toolFrame(0x00, 0x80, "RESPONSE\r\nmodel X\r\n"),
        HytorcHcpFrame::buildNackFrame(),
        toolFrame(0x02, 0x88, QByteArray(300, 'e')),
        toolFrame(0x00, 0x80, QByteArray()),
        toolFrame(0x00, 0x88, "PASSED\r\n"),
    };
    QByteArray stream;
    for (const QByteArray& frame : frames)
        stream += frame;

    for (int cut = 0; cut <= stream.size(); ++cut) {
        QByteArray rest;
        const QList<QByteArray> got = extractInPieces(stream, {cut}, &rest);
        if (got != frames || !rest.isEmpty())
            QFAIL(qPrintable(QStringLiteral("cut at %1: %2 frames, %3 bytes left").arg(cut).arg(got.size()).arg(rest.size())));
    }
    // Two cuts as well, every pair a few bytes apart.
    for (int first = 0; first <= stream.size(); first += 3) {
        for (int second = first; second <= stream.size(); second += 17) {
            QByteArray rest;
            if (extractInPieces(stream, {first, second}, &rest) != frames || !rest.isEmpty())
                QFAIL(qPrintable(QStringLiteral("cuts at %1, %2").arg(first).arg(second)));
        }
    }
}

void TestHcpFrame::extractByteByByte()
{
    const QByteArray a = toolFrame(0x00, 0x80, "line one\r\n");
    const QByteArray b = HytorcHcpFrame::buildAckFrame();
    const QByteArray c = toolFrame(0x02, 0x88, "SET EVENT LOG\r\nTQ,12.5\r\n");
    const QByteArray stream = a + b + c;
    QList<int> cuts;
    for (int i = 1; i < stream.size(); ++i)
        cuts << i;
    QByteArray rest;
    QCOMPARE(extractInPieces(stream, cuts, &rest), (QList<QByteArray>{a, b, c}));
    QVERIFY(rest.isEmpty());
}

void TestHcpFrame::extractNoiseBeforeAndBetween()
{
    const QByteArray a = toolFrame(0x00, 0x80, "A\r\n");
    const QByteArray b = toolFrame(0x00, 0x88, "B\r\n");
    QByteArray buffer = hex("41 42 43") + a + QByteArray("noise!") + b;
    QCOMPARE(extractAll(buffer), (QList<QByteArray>{a, b}));
    QVERIFY(buffer.isEmpty());

    // Noise in front of an incomplete frame is dropped, the frame start kept.
    QByteArray partial = QByteArray("xyz") + b.left(5);
    QVERIFY(extractAll(partial).isEmpty());
    QCOMPARE(partial, b.left(5));
}

void TestHcpFrame::extractStrayZeroInNoise()
{
    const QByteArray real = toolFrame(0x00, 0x88, "REAL\r\n");

    // A stray 0x00 is taken as a frame start: here 00 7E 80 02 "XY" "ZZ", an 8-byte
    // "frame" with a 2-byte payload, handed over before the real one.
    QByteArray buffer = hex("41 00 7E 80 02") + QByteArray("XYZZ") + real;
    const QList<QByteArray> got = extractAll(buffer);
    QCOMPARE(got.size(), 2);
    QCOMPARE(got.at(0), hex("00 7E 80 02") + QByteArray("XYZZ"));
    QCOMPARE(got.at(1), real);
    QVERIFY(buffer.isEmpty());

    // A stray 0x00 announcing a long frame swallows what follows until it is complete.
    QByteArray swallow = hex("41 00 01 83 FF") + real; // N = 1023
    QVERIFY(extractAll(swallow).isEmpty());
    QCOMPARE(swallow, hex("00 01 83 FF") + real);
    swallow.append(QByteArray(1023 + 6 - swallow.size(), 'q'));
    swallow.append(real);
    const QList<QByteArray> after = extractAll(swallow);
    QCOMPARE(after.size(), 2);
    QCOMPARE(after.at(0).size(), 1029);
    QCOMPARE(after.at(1), real);
}

void TestHcpFrame::extractLongFrameInPieces()
{
    QByteArray payload;
    for (int i = 0; payload.size() < 300; ++i)
        payload += QByteArray::number(i) + "\r\n";
    payload.truncate(300);
    const QByteArray frame = toolFrame(0x00, 0x88, payload);
    QCOMPARE(frame.size(), 306);

    // The header announcing 300 bytes and 200 of them: everything stays.
    QByteArray buffer = frame.left(204);
    QVERIFY(extractAll(buffer).isEmpty());
    QCOMPARE(buffer, frame.left(204));
    buffer.append(frame.mid(204, 101)); // one byte short: the stream waits for the whole frame
    QVERIFY(extractAll(buffer).isEmpty());
    QCOMPARE(buffer.size(), 305);
    buffer.append(frame.mid(305));
    const QList<QByteArray> got = extractAll(buffer);
    QCOMPARE(got, QList<QByteArray>{frame});
    QCOMPARE(HytorcHcpFrame::parseFrame(got.at(0)).value("payload").toByteArray(), payload);
    QVERIFY(buffer.isEmpty());

    // In pieces of 1, 7, 50 and 100 bytes.
    for (int step : {1, 7, 50, 100}) {
        QList<int> cuts;
        for (int i = step; i < frame.size(); i += step)
            cuts << i;
        QByteArray rest;
        QCOMPARE(extractInPieces(frame, cuts, &rest), QList<QByteArray>{frame});
        QVERIFY(rest.isEmpty());
    }
}

void TestHcpFrame::extractBufferWithoutStart()
{
    QByteArray buffer("0123456789"); // 10 bytes, no 0x00
    QVERIFY(extractAll(buffer).isEmpty());
    QVERIFY(buffer.isEmpty());
}

void TestHcpFrame::extractKeepsShortTail()
{
    // After a frame, fewer than 6 bytes are kept as they are, noise or not.
    const QByteArray ack = HytorcHcpFrame::buildAckFrame();
    QByteArray buffer = ack + QByteArray("abcde");
    QCOMPARE(extractAll(buffer), QList<QByteArray>{ack});
    QCOMPARE(buffer, QByteArray("abcde"));
    // Six or more: searched again, and without a start discarded.
    buffer = ack + QByteArray("abcdef");
    QCOMPARE(extractAll(buffer), QList<QByteArray>{ack});
    QVERIFY(buffer.isEmpty());
}

void TestHcpFrame::payloadLinesSplitting()
{
    QCOMPARE(HytorcHcpFrame::payloadLines("RESPONSE\r\n\r\n  model X \r\r\n\tserial 1\n"),
             (QStringList{"RESPONSE", "model X", "serial 1"}));
    QCOMPARE(HytorcHcpFrame::payloadLines(QByteArray("one\r\ntwo\0three\r\n", 16)), (QStringList{"one", "two"}));
    QCOMPARE(HytorcHcpFrame::payloadLines(QByteArray("\0abc", 4)), QStringList());
    QCOMPARE(HytorcHcpFrame::payloadLines("  \r\n \t \r\n"), QStringList());
    QCOMPARE(HytorcHcpFrame::payloadLines("Drehmoment \xC3\x9C" "ber\r\n 12,5 N\xC2\xB7m\xC2\xA0\r\n"),
             (QStringList{QString::fromUtf8("Drehmoment \xC3\x9C" "ber"), QString::fromUtf8("12,5 N\xC2\xB7m")}));
}

void TestHcpFrame::payloadLinesMatchesRegexRoad()
{
    // The ASCII road of payloadLines gives what the line splitter gives.
    QRandomGenerator rng(7);
    const char alphabet[] = "\r\n\t \v\fAbc,0\x85\xA0\xC3\x9C";
    for (int round = 0; round < 20000; ++round) {
        const bool ascii = round % 2;
        QByteArray payload(int(rng.bounded(40)), Qt::Uninitialized);
        for (int i = 0; i < payload.size(); ++i)
            payload[i] = alphabet[rng.bounded(ascii ? 11 : int(sizeof(alphabet) - 1))];
        if (round % 7 == 0 && !payload.isEmpty())
            payload[int(rng.bounded(payload.size()))] = '\0';
        if (HytorcHcpFrame::payloadLines(payload) != referenceLines(payload))
            QFAIL(qPrintable(QString::fromLatin1(payload.toHex(' '))));
    }
}

void TestHcpFrame::judgeReply_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("kept");
    QTest::addColumn<QString>("error");
    const QStringList noLines;
    QTest::newRow("framing words and echo dropped")
        << QStringList{"HCD", "RESPONSE", "UIC", "GET ADMIN TOOL_INFO", "model X", "ERRORCODE,0", "PASSED", "serial 9"}
        << QStringList{"model X", "serial 9"} << QString();
    QTest::newRow("ERRORCODE,3") << QStringList{"RESPONSE", "ERRORCODE,3"} << noLines
                                 << QStringLiteral("Tool returned error: ERRORCODE,3");
    QTest::newRow("ERRORCODE,0 is fine") << QStringList{"ERRORCODE,0", "a"} << QStringList{"a"} << QString();
    QTest::newRow("ERRORCODE alone") << QStringList{"ERRORCODE"} << noLines
                                     << QStringLiteral("Tool returned error: ERRORCODE");
    QTest::newRow("FAILED") << QStringList{"x", "FAILED"} << QStringList{"x"}
                            << QStringLiteral("Tool returned error: FAILED");
    QTest::newRow("lower case is data") << QStringList{"passed", "failed", "errorcode,1", "hcd", "uic"}
                                        << QStringList{"passed", "failed", "errorcode,1", "hcd", "uic"} << QString();
    QTest::newRow("FAILED inside a line is data") << QStringList{"NOT FAILED", "PASSED!"}
                                                  << QStringList{"NOT FAILED", "PASSED!"} << QString();
    QTest::newRow("lines are trimmed") << QStringList{"  PASSED ", "\tv 1 ", ""} << QStringList{"v 1"} << QString();
}

void TestHcpFrame::judgeReply()
{
    QFETCH(QStringList, lines);
    QFETCH(QStringList, kept);
    QFETCH(QString, error);
    QStringList got{"before"};
    QString gotError;
    const bool ok = HytorcHcpFrame::judgeReplyLines(lines, QStringLiteral(" GET ADMIN TOOL_INFO\r\n"), &got, &gotError);
    QCOMPARE(ok, error.isEmpty());
    QCOMPARE(got, QStringList{"before"} + kept);
    QCOMPARE(gotError, error);
}

void TestHcpFrame::judgeReplyStopsAtFirstError()
{
    QStringList kept;
    QString error;
    QVERIFY(!HytorcHcpFrame::judgeReplyLines({"a", "ERRORCODE,7", "b", "FAILED"}, "GET X", &kept, &error));
    QCOMPARE(kept, QStringList{"a"});
    QCOMPARE(error, QStringLiteral("Tool returned error: ERRORCODE,7"));
}

void TestHcpFrame::judgeEvents()
{
    QCOMPARE(HytorcHcpFrame::judgeEventLines(
                 {"HCD", "RESPONSE", "ERRORCODE,0", "", "SET EVENT LOG", "UIC", "PASSED", "FAILED", "ERRORCODE,2", "TQ,1"}),
             (QStringList{"SET EVENT LOG", "UIC", "PASSED", "FAILED", "ERRORCODE,2", "TQ,1"}));
}

QTEST_APPLESS_MAIN(TestHcpFrame)
#include "test_hcp_frame.moc"
