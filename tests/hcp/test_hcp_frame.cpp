// HCP-e frame codec: worked frames, decoding, extraction from the stream, line judging.
#include "hytorc_hcp_frame.h"

#include <QtTest>

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray toolFrame(quint8 linkFlags, quint8 frameFlags, const QByteArray& payload)
{
    return HytorcHcpFrame::encodeFrame(linkFlags, frameFlags, payload);
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

} // namespace

class TestHcpFrame : public QObject
{
    Q_OBJECT

private slots:
    void workedFrames_data();
    void workedFrames();
    void parse_data();
    void parse();
    void extract_data();
    void extract();
    void payloadLines_data();
    void payloadLines();
    void judgeReply_data();
    void judgeReply();
    void judgeEvents();
};

void TestHcpFrame::workedFrames_data()
{
    QTest::addColumn<QByteArray>("built");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("link header") << HytorcHcpFrame::buildFrame("UIC\r\n", false, true, false, 0)
                                 << hex("00 01 80 05 55 49 43 0D 0A FE 82");
    QTest::newRow("request seq 1") << HytorcHcpFrame::buildFrame("GET ADMIN TOOL_INFO\r\n", true, false, true, 1)
                                   << hex("00 00 9C 15") + "GET ADMIN TOOL_INFO\r\n" + hex("F9 E6");
    QTest::newRow("keep-alive") << HytorcHcpFrame::buildFrame("GET STATE BATTERY\r\n", true, true, true, 0)
                                << hex("00 01 8C 13") + "GET STATE BATTERY\r\n" + hex("FA 8D");
    QTest::newRow("seq 3, no flags") << HytorcHcpFrame::buildFrame("A", false, false, false, 7)
                                     << hex("00 00 B0 01 41 FF 0E");
    QTest::newRow("length cut to 10 bits") << HytorcHcpFrame::buildFrame(QByteArray(1025, 'x'), false, false, true, 0)
                                                  .left(4)
                                           << hex("00 00 88 01");
    QTest::newRow("300 bytes") << toolFrame(0x02, 0x83, QByteArray(300, 'a')).left(4) << hex("00 02 81 2C");
    QTest::newRow("ACK") << HytorcHcpFrame::buildAckFrame() << hex("00 01 48 00 FF B7");
    QTest::newRow("NACK") << HytorcHcpFrame::buildNackFrame() << hex("00 01 08 00 FF F7");
}

void TestHcpFrame::workedFrames()
{
    QFETCH(QByteArray, built);
    QFETCH(QByteArray, expected);
    QCOMPARE(built.toHex(' '), expected.toHex(' '));
}

void TestHcpFrame::parse_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("decoded");
    QTest::newRow("fewer than 6 bytes") << hex("00 01 48 00 FF") << "valid=false";
    QTest::newRow("N=300, 200 bytes") << hex("00 02 89 2C") + QByteArray(200, 'p')
                                      << "isAck=false isLast=true isToolInitiated=true valid=false";
    QTest::newRow("N=0") << hex("00 00 80 00 FF 80")
                         << "isAck=false isLast=false isToolInitiated=false payload= valid=true";
    QTest::newRow("no checksum") << hex("00 00 80 02 41 42")
                                 << "isAck=false isLast=false isToolInitiated=false payload=4142 valid=true";
    QTest::newRow("wrong checksum") << hex("00 00 88 01 41 00 00")
                                    << "isAck=false isLast=true isToolInitiated=false payload=41 valid=true";
    QTest::newRow("ACK") << HytorcHcpFrame::buildAckFrame()
                         << "isAck=true isLast=true isToolInitiated=false payload= valid=true";
    QTest::newRow("NACK") << HytorcHcpFrame::buildNackFrame()
                          << "isAck=false isLast=true isToolInitiated=false payload= valid=true";
    QTest::newRow("data frame never ACK") << hex("00 01 C8 00 FF 37")
                                          << "isAck=false isLast=true isToolInitiated=false payload= valid=true";
    QTest::newRow("tool event") << toolFrame(0x02, 0x88, "E")
                                << "isAck=false isLast=true isToolInitiated=true payload=45 valid=true";
}

void TestHcpFrame::parse()
{
    QFETCH(QByteArray, frame);
    QFETCH(QString, decoded);
    QCOMPARE(mapText(HytorcHcpFrame::parseFrame(frame)), decoded);
}

void TestHcpFrame::extract_data()
{
    QTest::addColumn<QByteArray>("buffer");
    QTest::addColumn<QList<QByteArray>>("frames");
    QTest::addColumn<QByteArray>("rest");
    const QByteArray a = toolFrame(0x00, 0x80, "A\r\n");
    const QByteArray b = toolFrame(0x00, 0x88, "B\r\n");
    const QByteArray ack = HytorcHcpFrame::buildAckFrame();
    const QByteArray longFrame = toolFrame(0x00, 0x88, QByteArray(300, 'L'));
    QTest::newRow("5 bytes kept") << hex("41 42 43 44 45") << QList<QByteArray>() << hex("41 42 43 44 45");
    QTest::newRow("no start: emptied") << QByteArray("0123456789") << QList<QByteArray>() << QByteArray();
    QTest::newRow("noise around") << "ABC" + a + "noise!" + b << QList<QByteArray>{a, b} << QByteArray();
    QTest::newRow("noise before a partial") << "xyz" + b.left(5) + "q" << QList<QByteArray>() << b.left(5) + "q";
    QTest::newRow("stray 0x00 is a start") << hex("41 00 7E 80 02") + "XYZZ" + b
                                           << QList<QByteArray>{hex("00 7E 80 02") + "XYZZ", b} << QByteArray();
    QTest::newRow("stray 0x00 swallows") << hex("41 00 01 83 FF") + b << QList<QByteArray>()
                                         << hex("00 01 83 FF") + b;
    QTest::newRow("300 of 306") << longFrame.left(305) << QList<QByteArray>() << longFrame.left(305);
    QTest::newRow("short tail kept") << ack + "abcde" << QList<QByteArray>{ack} << QByteArray("abcde");
    QTest::newRow("6-byte tail searched") << ack + "abcdef" << QList<QByteArray>{ack} << QByteArray();
}

void TestHcpFrame::extract()
{
    QFETCH(QByteArray, buffer);
    QFETCH(QList<QByteArray>, frames);
    QFETCH(QByteArray, rest);
    QList<QByteArray> got;
    HytorcHcpFrame::extractFrames(buffer, [&got](const QByteArray& frame) { got << frame; });
    QCOMPARE(got, frames);
    QCOMPARE(buffer.toHex(' '), rest.toHex(' '));
}

void TestHcpFrame::payloadLines_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("runs of CR LF, trimmed") << QByteArray("RESPONSE\r\n\r\n  model X \r\r\n\tserial 1\n")
                                            << QStringList{"RESPONSE", "model X", "serial 1"};
    QTest::newRow("up to the NUL") << QByteArray("one\r\ntwo\0three\r\n", 16) << QStringList{"one", "two"};
    QTest::newRow("NUL first") << QByteArray("\0abc", 4) << QStringList();
    QTest::newRow("blanks only") << QByteArray("  \r\n \t \r\n") << QStringList();
    QTest::newRow("UTF-8") << QByteArray("Drehmoment \xC3\x9C" "ber\r\n 12,5 N\xC2\xB7m\xC2\xA0\r\n")
                           << QStringList{QString::fromUtf8("Drehmoment \xC3\x9C" "ber"),
                                          QString::fromUtf8("12,5 N\xC2\xB7m")};
}

void TestHcpFrame::payloadLines()
{
    QFETCH(QByteArray, payload);
    QFETCH(QStringList, lines);
    QCOMPARE(HytorcHcpFrame::payloadLines(payload), lines);
}

void TestHcpFrame::judgeReply_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("kept");
    QTest::addColumn<QString>("error");
    QTest::newRow("framing words and echo dropped")
        << QStringList{"HCD", "RESPONSE", "UIC", "GET ADMIN TOOL_INFO", "model X", "ERRORCODE,0", "PASSED", "serial 9"}
        << QStringList{"model X", "serial 9"} << QString();
    QTest::newRow("ERRORCODE,3") << QStringList{"RESPONSE", "ERRORCODE,3"} << QStringList()
                                 << "Tool returned error: ERRORCODE,3";
    QTest::newRow("ERRORCODE alone") << QStringList{"ERRORCODE"} << QStringList() << "Tool returned error: ERRORCODE";
    QTest::newRow("stops at the first error") << QStringList{"a", "ERRORCODE,7", "b", "FAILED"} << QStringList{"a"}
                                              << "Tool returned error: ERRORCODE,7";
    QTest::newRow("FAILED") << QStringList{"x", "FAILED"} << QStringList{"x"} << "Tool returned error: FAILED";
    QTest::newRow("lower case is data") << QStringList{"passed", "failed", "errorcode,1", "hcd", "uic"}
                                        << QStringList{"passed", "failed", "errorcode,1", "hcd", "uic"} << QString();
    QTest::newRow("words inside lines are data") << QStringList{"NOT FAILED", "PASSED!"}
                                                 << QStringList{"NOT FAILED", "PASSED!"} << QString();
    QTest::newRow("trimmed") << QStringList{"  PASSED ", "\tv 1 ", ""} << QStringList{"v 1"} << QString();
}

void TestHcpFrame::judgeReply()
{
    QFETCH(QStringList, lines);
    QFETCH(QStringList, kept);
    QFETCH(QString, error);
    QStringList got{"before"};
    QString gotError;
    QCOMPARE(HytorcHcpFrame::judgeReplyLines(lines, " GET ADMIN TOOL_INFO\r\n", &got, &gotError), error.isEmpty());
    QCOMPARE(got, QStringList{"before"} + kept);
    QCOMPARE(gotError, error);
}

void TestHcpFrame::judgeEvents()
{
    QCOMPARE(HytorcHcpFrame::judgeEventLines(
                 {"HCD", "RESPONSE", "ERRORCODE,0", "", "SET EVENT LOG", "UIC", "PASSED", "FAILED", "ERRORCODE,2", "T"}),
             (QStringList{"SET EVENT LOG", "UIC", "PASSED", "FAILED", "ERRORCODE,2", "T"}));
}

QTEST_APPLESS_MAIN(TestHcpFrame)
#include "test_hcp_frame.moc"
