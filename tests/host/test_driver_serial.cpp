// The serial driver plug-in, loaded by the workstation's loader, on a real pseudo-terminal:
// the test plays the device at the terminal's other end.
#include "d_pseudo_terminal.h"
#include "d_test_workstation.h"

#include <QtTest>

namespace {

const QByteArray c_heartbeat("HB\x00\r\n", 5);
const QByteArray c_response = QByteArray::fromHex("00010800FFF7");
const QByteArray c_ack = QByteArray::fromHex("00014800FFB7");
const QVariantMap c_done{{"cmd_success", true}};
const QVariantMap c_notOpen{{"cmd_success", false}, {"error", "Serial port not open"}};

// The device: what it received so far.
struct Device {
    DPseudoTerminal terminal;
    QByteArray received;
    Device()
    {
        QObject::connect(&terminal, &DPseudoTerminal::sigBytesReceived, &terminal,
                         [this](const QByteArray& bytes) { received += bytes; });
    }
};

} // namespace

class TestDriverSerial : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_ws.reset(new DTestWorkstation);
        m_device.reset(new Device);
        QString error;
        QVERIFY2(m_ws->setUp(&error) && m_device->terminal.open(&error), qPrintable(error));
    }

    void refusals()
    {
        const QList<QPair<QString, QVariantMap>> unusable{
            {"format", {}},
            {"changeDevicePath", {{"baud_rate", 9600}}},
            {"changeDevicePath", {{"devicePath", m_device->terminal.slavePath()}, {"parity", 1}}},
            {"write", {{"frame", QByteArray()}}},
            {"setKeepAliveFonction", {{"frame", c_heartbeat}, {"timeout", 0}}},
        };
        for (const auto& instruction : unusable) {
            QString refusal;
            QCOMPARE(m_ws->call(instruction.first, instruction.second, &refusal), QVariantMap());
            QVERIFY2(!refusal.isEmpty(), qPrintable(instruction.first));
        }
        const QVariantMap failed = m_ws->call("changeDevicePath", {{"devicePath", "/nonexistent/ttyX"}});
        QCOMPARE(failed.value("results").toMap(), (QVariantMap{{"doneOk", false}, {"devicePath", "/nonexistent/ttyX"}}));
        QVERIFY(failed.value("error").toString().startsWith("/nonexistent/ttyX: "));
    }

    void keepAliveWaitsForSilenceAndStripsItsAnswer()
    {
        QVERIFY(m_ws->openDevice(m_device->terminal.slavePath()));
        QByteArray passive, transaction;
        QVERIFY(listen("listen", &passive) != 0);
        const quint64 prog = listen("prog", &transaction);
        const int silenceMs = 100;
        QCOMPARE(m_ws->call("setKeepAliveFonction", {{"frame", c_heartbeat}, {"responseFrame", c_response},
                                                     {"ackFrame", c_ack}, {"timeout", silenceMs}}),
                 c_done);
        // No heartbeat was asked for: the bytes are the listeners'.
        QVERIFY(m_device->terminal.write(c_response) == 6);
        QTRY_COMPARE_WITH_TIMEOUT(transaction, c_response, 10000);
        // Many silent periods while a transaction is open: no heartbeat may cut in.
        QTest::qWait(8 * silenceMs);
        QCOMPARE(m_device->received, QByteArray());

        QVERIFY(m_ws->router.closeInstruction(prog));
        QTRY_VERIFY_WITH_TIMEOUT(m_device->received.startsWith(c_heartbeat), 10000);
        QVERIFY(m_device->terminal.write("ab" + c_response + "cd") == 10);
        QTRY_VERIFY_WITH_TIMEOUT(m_device->received.contains(c_ack), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(passive, c_response + "abcd", 10000);
    }

    void vanishedPortEndsListenersAndReopens()
    {
        QCOMPARE(m_ws->call("write", {{"frame", QByteArray("x")}}), c_notOpen);
        QVERIFY(m_ws->openDevice(m_device->terminal.slavePath()));
        QByteArray first, second;
        QVERIFY(listen(QString(), &first) && listen("listen", &second));
        m_device->terminal.close();
        QTRY_COMPARE_WITH_TIMEOUT(m_ws->router.openCount(), 0, 10000); // both listeners ended
        QCOMPARE(m_ws->call("write", {{"frame", QByteArray("x")}}), c_notOpen);

        Device replacement;
        QString error;
        QVERIFY2(replacement.terminal.open(&error), qPrintable(error));
        QVERIFY(m_ws->openDevice(replacement.terminal.slavePath()));
        QByteArray again;
        QVERIFY(listen(QString(), &again) != 0);
        // NUL, CR, LF, 0xFF, XON, XOFF and DEL pass untouched, both ways, only on a raw line.
        const QByteArray raw("\x00\x0D\x0A\xFF\x11\x13\x7F\x0A\x0D", 9);
        QVERIFY(replacement.terminal.write(raw) == raw.size());
        QTRY_COMPARE_WITH_TIMEOUT(again, raw, 10000);
        QCOMPARE(m_ws->call("write", {{"frame", raw}}), c_done);
        QTRY_COMPARE_WITH_TIMEOUT(replacement.received, raw, 10000);
        QCOMPARE(m_ws->call("closeConnection", {}), c_done);
        QCOMPARE(m_ws->call("write", {{"frame", raw}}), c_notOpen);
    }

private:
    quint64 listen(const QString& validator, QByteArray* heard)
    {
        QString refusal;
        return m_ws->router.openInstruction(
            "driver", "listenEventsData",
            validator.isEmpty() ? QVariantMap() : QVariantMap{{"subscription", true}, {"validator", validator}}, 2000,
            [heard](quint64, const QVariantMap& event) { *heard += event.value("frame").toByteArray(); }, &refusal);
    }

    QScopedPointer<DTestWorkstation> m_ws;
    QScopedPointer<Device> m_device;
};

QTEST_GUILESS_MAIN(TestDriverSerial)
#include "test_driver_serial.moc"
