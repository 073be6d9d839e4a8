#include "d_abstract_plugin.h"
#include "d_instruction_router.h"
#include "d_pty_device.h"
#include "i_instruction_target.h"

#include <QPluginLoader>
#include <QSignalSpy>
#include <QtTest>

#include <utility>

namespace {

const QString c_frame = QStringLiteral("frame");
const QByteArray c_heartbeat("HB\x00\r\n", 5);
const QByteArray c_response("\x00\x01\x08\x00\xFF\xF7", 6);
const QByteArray c_ack("\x00\x01\x48\x00\xFF\xB7", 6);
const QVariantMap c_done{{QStringLiteral("cmd_success"), true}};
const QVariantMap c_notOpen{{QStringLiteral("cmd_success"), false},
                            {QStringLiteral("error"), QStringLiteral("Serial port not open")}};

// What one listener was given.
struct DHeard {
    QByteArray bytes;
    QList<int> numbers;
};

} // namespace

class TestDriverSerial : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void identityAndRefusals();
    void openFailsClearlyThenSucceeds();
    void writesRawBytesUnchanged();
    void everyListenerHearsEveryChunk();
    void keepAliveWaitsForSilenceAndStripsItsAnswer();
    void vanishedPortClosesCleanlyAndReopens();

private:
    QVariantMap call(const QString& instruction, const QVariantMap& parameters, QString* refusal = nullptr);
    bool openPort(const QString& devicePath);
    // An empty validator opens the bare form of "listenEventsData".
    quint64 listen(const QString& validator, DHeard* heard);

    QPluginLoader m_loader;
    IPlugin* m_root = nullptr;
    QScopedPointer<DInstructionRouter> m_router;
    QScopedPointer<DAbstractPlugin> m_driver;
    QScopedPointer<DPtyDevice> m_pty;
};

void TestDriverSerial::initTestCase()
{
    const QString buildDir = qEnvironmentVariable("HYTORC_BUILD_DIR", QStringLiteral(HYTORC_DEFAULT_BUILD_DIR));
    m_loader.setFileName(buildDir + QStringLiteral("/plugins/libp_driver_serial.so"));
    m_root = qobject_cast<IPlugin*>(m_loader.instance());
    QVERIFY2(m_root, qPrintable(m_loader.errorString()));
}

void TestDriverSerial::init()
{
    m_router.reset(new DInstructionRouter);
    m_driver.reset(dynamic_cast<DAbstractPlugin*>(m_root->createInstance(QUuid::createUuid())));
    QVERIFY(m_driver);
    m_router->addTarget(QStringLiteral("driver"), qobject_cast<IInstructionTarget*>(m_driver.data()));
    m_pty.reset(new DPtyDevice);
    QString error;
    QVERIFY2(m_pty->open(&error), qPrintable(error));
}

void TestDriverSerial::cleanup()
{
    m_router->removeTarget(QStringLiteral("driver"));
}

QVariantMap TestDriverSerial::call(const QString& instruction, const QVariantMap& parameters, QString* refusal)
{
    QList<QVariantMap> replies;
    QString reason;
    const quint64 id = m_router->openInstruction(
        QStringLiteral("driver"), instruction, parameters, 10000,
        [&replies](quint64, const QVariantMap& reply) { replies << reply; }, refusal ? refusal : &reason);
    // The router answers a silent one-shot itself within its timeout.
    const bool replied = id != 0 && QTest::qWaitFor([&replies] { return !replies.isEmpty(); }, 15000);
    return replied ? replies.first() : QVariantMap();
}

// With the settings the device plug-in asks for.
bool TestDriverSerial::openPort(const QString& devicePath)
{
    const QVariantMap reply = call(QStringLiteral("changeDevicePath"),
                                   {{QStringLiteral("devicePath"), devicePath}, {QStringLiteral("rawMode"), true},
                                    {QStringLiteral("parallelListening"), true}, {QStringLiteral("baud_rate"), 115200},
                                    {QStringLiteral("data_bits"), 8}, {QStringLiteral("parity"), 0},
                                    {QStringLiteral("stop_bits"), 1}, {QStringLiteral("flow_control"), 0}});
    return reply.value(QStringLiteral("results")).toMap().value(QStringLiteral("doneOk")).toBool();
}

quint64 TestDriverSerial::listen(const QString& validator, DHeard* heard)
{
    const QVariantMap parameters = validator.isEmpty() ? QVariantMap()
                                                       : QVariantMap{{QStringLiteral("subscription"), true},
                                                                     {QStringLiteral("validator"), validator}};
    QString refusal;
    return m_router->openInstruction(
        QStringLiteral("driver"), QStringLiteral("listenEventsData"), parameters, 2000,
        [heard](quint64, const QVariantMap& event) {
            heard->bytes += event.value(c_frame).toByteArray();
            heard->numbers << event.value(QStringLiteral("number")).toInt();
        },
        &refusal);
}

void TestDriverSerial::identityAndRefusals()
{
    QCOMPARE(m_driver->pluginName(), QStringLiteral("Plugin Driver Serial"));
    QCOMPARE(m_driver->pluginType(), IPlugin::CeTypeDriver);
    QCOMPARE(QByteArray(m_driver->pluginSubTypeName()), QByteArray("serial"));
    QSignalSpy initDone(m_driver.data(), &DAbstractPlugin::sigCommandsInitDone);
    m_driver->initPluginCommands();
    QCOMPARE(initDone.size(), 1);

    const QList<std::pair<QString, QVariantMap>> unusable{
        {QStringLiteral("format"), {}},
        {QStringLiteral("changeDevicePath"), {{QStringLiteral("baud_rate"), 9600}}},
        {QStringLiteral("changeDevicePath"), {{QStringLiteral("devicePath"), m_pty->slavePath()},
                                              {QStringLiteral("parity"), 1}}},
        {QStringLiteral("write"), {{c_frame, QByteArray()}}},
        {QStringLiteral("setKeepAliveFonction"), {{c_frame, c_heartbeat}, {QStringLiteral("timeout"), 0}}},
    };
    for (const auto& instruction : unusable) {
        QString refusal;
        QCOMPARE(call(instruction.first, instruction.second, &refusal), QVariantMap());
        QVERIFY2(!refusal.isEmpty(), qPrintable(instruction.first));
    }
}

void TestDriverSerial::openFailsClearlyThenSucceeds()
{
    QCOMPARE(call(QStringLiteral("write"), {{c_frame, QByteArray("x")}}), c_notOpen);
    const QString badPath = QStringLiteral("/nonexistent/ttyHYTORC");
    const QVariantMap failed = call(QStringLiteral("changeDevicePath"), {{QStringLiteral("devicePath"), badPath}});
    QCOMPARE(failed.value(QStringLiteral("cmd_success")), QVariant(false));
    QCOMPARE(failed.value(QStringLiteral("results")).toMap(),
             (QVariantMap{{QStringLiteral("doneOk"), false}, {QStringLiteral("devicePath"), badPath}}));
    QVERIFY(failed.value(QStringLiteral("error")).toString().startsWith(badPath + QStringLiteral(": ")));

    QSignalSpy state(m_driver.data(), SIGNAL(sigPortStateChanged(bool, QString)));
    QVERIFY(openPort(m_pty->slavePath()));
    QCOMPARE(call(QStringLiteral("closeConnection"), {}), c_done);
    QCOMPARE(call(QStringLiteral("write"), {{c_frame, QByteArray("x")}}), c_notOpen);
    QCOMPARE(state.size(), 2);
    QVERIFY(state.at(0).at(0).toBool() && !state.at(1).at(0).toBool());
}

void TestDriverSerial::writesRawBytesUnchanged()
{
    QVERIFY(openPort(m_pty->slavePath()));
    QSignalSpy written(m_driver.data(), SIGNAL(sigBytesWritten(QByteArray)));
    // NUL, CR, LF, 0xFF, XON, XOFF and DEL pass untouched only on a raw line.
    const QByteArray frame("\x00\x0D\x0A\xFF\x11\x13\x7F\x0A\x0D", 9);
    QCOMPARE(call(QStringLiteral("write"), {{c_frame, frame}}), c_done);
    QCOMPARE(call(QStringLiteral("write"), {{c_frame, c_ack}}), c_done);
    QTRY_COMPARE_WITH_TIMEOUT(m_pty->received(), frame + c_ack, 10000);
    QCOMPARE(written.size(), 2);
    QCOMPARE(written.at(0).at(0).toByteArray(), frame);
}

void TestDriverSerial::everyListenerHearsEveryChunk()
{
    QVERIFY(openPort(m_pty->slavePath()));
    DHeard bare;
    DHeard subscribed;
    QVERIFY(listen(QString(), &bare) != 0);
    const quint64 second = listen(QStringLiteral("listen"), &subscribed);
    const QByteArray first("\x00\x01\x0D\x0A", 4);
    const QByteArray next("\xFF\x00\x0D", 3);
    QVERIFY(m_pty->write(first));
    QTRY_COMPARE_WITH_TIMEOUT(bare.bytes, first, 10000);
    QVERIFY(m_pty->write(next));
    QTRY_COMPARE_WITH_TIMEOUT(subscribed.bytes, first + next, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(bare.numbers, subscribed.numbers, 10000);
    QVERIFY(bare.numbers.first() >= 1);
    for (int i = 1; i < bare.numbers.size(); ++i)
        QVERIFY(bare.numbers.at(i) > bare.numbers.at(i - 1));

    QVERIFY(m_router->closeInstruction(second));
    QVERIFY(m_pty->write("tail"));
    QTRY_COMPARE_WITH_TIMEOUT(bare.bytes, first + next + "tail", 10000);
    QCOMPARE(subscribed.bytes, first + next);
}

void TestDriverSerial::keepAliveWaitsForSilenceAndStripsItsAnswer()
{
    QVERIFY(openPort(m_pty->slavePath()));
    DHeard passive;
    DHeard transaction;
    QVERIFY(listen(QStringLiteral("listen"), &passive) != 0);
    const quint64 prog = listen(QStringLiteral("prog"), &transaction);
    const int silenceMs = 100;
    QCOMPARE(call(QStringLiteral("setKeepAliveFonction"), {{c_frame, c_heartbeat},
                                                            {QStringLiteral("responseFrame"), c_response},
                                                            {QStringLiteral("ackFrame"), c_ack},
                                                            {QStringLiteral("timeout"), silenceMs}}),
             c_done);
    // No heartbeat was asked for: the bytes are the listeners'.
    QVERIFY(m_pty->write(c_response));
    QTRY_COMPARE_WITH_TIMEOUT(transaction.bytes, c_response, 10000);
    // Many silent periods while a transaction is open: no heartbeat may cut in.
    QTest::qWait(8 * silenceMs);
    QCOMPARE(m_pty->received(), QByteArray());

    QVERIFY(m_router->closeInstruction(prog));
    QTRY_VERIFY_WITH_TIMEOUT(m_pty->received().startsWith(c_heartbeat), 10000);
    QVERIFY(m_pty->write("ab" + c_response + "cd"));
    QTRY_VERIFY_WITH_TIMEOUT(m_pty->received().contains(c_ack), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(passive.bytes, c_response + "abcd", 10000);
}

void TestDriverSerial::vanishedPortClosesCleanlyAndReopens()
{
    QVERIFY(openPort(m_pty->slavePath()));
    DHeard first;
    DHeard second;
    QVERIFY(listen(QString(), &first) && listen(QStringLiteral("listen"), &second));
    QSignalSpy state(m_driver.data(), SIGNAL(sigPortStateChanged(bool, QString)));
    const QString lostPath = m_pty->slavePath();
    m_pty->close();
    QTRY_COMPARE_WITH_TIMEOUT(m_router->openCount(), 0, 10000);  // both listeners ended
    QCOMPARE(state.size(), 1);
    QVERIFY(state.at(0).at(1).toString().startsWith(lostPath + QStringLiteral(": device lost")));
    QCOMPARE(call(QStringLiteral("write"), {{c_frame, QByteArray("x")}}), c_notOpen);

    DPtyDevice replacement;
    QString error;
    QVERIFY2(replacement.open(&error), qPrintable(error));
    QVERIFY(openPort(replacement.slavePath()));
    DHeard again;
    QVERIFY(listen(QString(), &again) != 0);
    QVERIFY(replacement.write("back"));
    QTRY_COMPARE_WITH_TIMEOUT(again.bytes, QByteArray("back"), 10000);
    QCOMPARE(call(QStringLiteral("write"), {{c_frame, QByteArray("ok")}}), c_done);
    QTRY_COMPARE_WITH_TIMEOUT(replacement.received(), QByteArray("ok"), 10000);
}

QTEST_GUILESS_MAIN(TestDriverSerial)
#include "test_driver_serial.moc"
