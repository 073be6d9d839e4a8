// The rules of the maintenance backend and its status channels that can really break,
// against a host that holds every command until the test answers it.
#include "be_maintenance_plugin.h"
#include "d_hytorc_channel.h"

#include <QtTest>

namespace {

class DHeldBackendHost : public QObject, public IPluginBackendHost
{
    Q_OBJECT
    Q_INTERFACES(IPluginBackendHost)
public:
    struct Run {
        QString name;
        QVariantMap data;
        EndHandler onEnd;
    };

    bool attachBackend(DAbstractPluginBackend*, QString*) override { return true; }
    void runCommand(QObject*, const QString&, const QString& name, const QVariantMap& data, int,
                    EndHandler onEnd) override
    {
        runs.append({name, data, onEnd});
    }
    void answer(int run, const QVariantMap& results) { runs.at(run).onEnd({IMessenger::CeNoError, {}, results}); }

    QList<Run> runs;
};

const QVariantMap c_success{{"cmd_success", true}};

} // namespace

class TestPanelRules : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void channelValue_data();
    void channelValue();
    void actionsQueueTheirTreatment_data();
    void actionsQueueTheirTreatment();
    void refusedClickIsRetriedOnLaterTurns();
    void channelsReadOnlyWhenNothingIsPending();
    void toolInfoTextInKeyOrder();

private:
    DHeldBackendHost* m_host = nullptr;
    BeMaintenanceDeviceHytorc* m_backend = nullptr;
};

void TestPanelRules::init()
{
    m_host = new DHeldBackendHost;
    m_backend = new BeMaintenanceDeviceHytorc;
    QVERIFY(m_backend->attachToHost(m_host));
}

void TestPanelRules::cleanup()
{
    delete m_backend;
    delete m_host;
}

void TestPanelRules::channelValue_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QVariant>("input");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("direction code 1") << "direction" << QVariant(QVariantList{1}) << QVariant("Loosening") << true;
    QTest::newRow("direction code 2") << "direction" << QVariant(QVariantList{2}) << QVariant(QString()) << true;
    QTest::newRow("direction code 9") << "direction" << QVariant(QVariantList{9}) << QVariant(QString()) << true;
    QTest::newRow("one element") << "currentPreset" << QVariant(QVariantList{"P2"}) << QVariant("P2") << true;
    QTest::newRow("three elements") << "direction" << QVariant(QVariantList{1, 2, 3}) << QVariant() << true;
    QTest::newRow("true") << "motorRun" << QVariant(true) << QVariant("Fastening") << true;
    QTest::newRow("map") << "motorRun" << QVariant(QVariantMap{{"a", 1}}) << QVariant() << false;
}

void TestPanelRules::channelValue()
{
    QFETCH(QString, id);
    QFETCH(QVariant, input);
    QFETCH(QVariant, stored);
    QFETCH(bool, accepted);
    const auto channel = DHytorcChannel::create({{"id", id}});
    QSignalSpy changed(channel.data(), &DHytorcChannel::valueChanged);
    QCOMPARE(channel->setValue(input), accepted);
    QCOMPARE(channel->setValue(input), accepted);
    QCOMPARE(channel->value(), stored);
    QCOMPARE(changed.count(), stored.isValid() ? 1 : 0);
}

void TestPanelRules::actionsQueueTheirTreatment_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariantMap>("data");
    QTest::addColumn<int>("kind");
    QTest::newRow("program 3") << "setProgram 3" << "setProgram" << QVariantMap{{"progId", 3u}} << 200;
    QTest::newRow("program abc") << "setProgram abc" << QString() << QVariantMap() << 0;
    QTest::newRow("lock") << "setLock 1" << "setLock" << QVariantMap{{"lock", 1}} << 100;
    QTest::newRow("direction") << "setDirection 0" << "setDirection" << QVariantMap{{"direction", 0}} << 300;
}

void TestPanelRules::actionsQueueTheirTreatment()
{
    QFETCH(QString, call);
    QFETCH(QString, name);
    QFETCH(QVariantMap, data);
    QFETCH(int, kind);
    const QString method = call.section(' ', 0, 0);
    const QString argument = call.section(' ', 1);
    if (method == "setProgram")
        m_backend->setProgram(argument);
    else if (method == "setLock")
        m_backend->setLock(argument == "1");
    else
        m_backend->setDirection(argument == "1");

    QCOMPARE(m_host->runs.size(), name.isEmpty() ? 0 : 1);
    QCOMPARE(m_backend->hasPendingTreatments(), !name.isEmpty());
    if (name.isEmpty())
        return;
    QCOMPARE(m_host->runs.first().name, name);
    QCOMPARE(m_host->runs.first().data, data);
    QSignalSpy released(m_backend, &DAbstractPluginBackend::treatmentReleased);
    m_host->answer(0, c_success);
    QCOMPARE(released.value(0), (QVariantList{kind, name, true}));
    QVERIFY(!m_backend->hasPendingTreatments());
}

void TestPanelRules::refusedClickIsRetriedOnLaterTurns()
{
    m_backend->loadChannels({QVariantMap{{"id", "motorRun"}, {"value", QVariantList{true}}}});
    for (int i = 0; i < DAbstractPluginBackend::c_maxPendingTreatments; ++i)
        m_backend->setLock(true);
    QSignalSpy delayed(m_backend, &BeMaintenanceDeviceHytorc::delayingClickedOnChannel);
    m_backend->clickedOnChannel(0);
    QCOMPARE(delayed.count(), 1);  // not retried inside the click
    QTRY_VERIFY(delayed.count() >= 3);

    // Room in the queue: the click gets in, behind the locks, and is not lost.
    for (int run = 0; run < DAbstractPluginBackend::c_maxPendingTreatments; ++run)
        m_host->answer(run, c_success);
    QTRY_COMPARE(m_host->runs.size(), DAbstractPluginBackend::c_maxPendingTreatments + 1);
    QCOMPARE(m_host->runs.last().data, (QVariantMap{{"channel", "motorRun"}, {"value", false}}));
}

void TestPanelRules::channelsReadOnlyWhenNothingIsPending()
{
    m_backend->loadChannels({QVariantMap{{"id", "direction"}}, QVariantMap(), QVariantMap{{"id", "motorRun"}}});
    m_backend->getChannelAt(0)->setReadCommand("getRegister");
    m_backend->setLock(false);
    m_backend->updateChannelsValue();
    QCOMPARE(m_host->runs.size(), 1);

    m_host->answer(0, c_success);
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("updateChannelsValue: channel is null at index 1$"));
    m_backend->updateChannelsValue();
    QCOMPARE(m_host->runs.size(), 2);
    QCOMPARE(m_host->runs.at(1).name, QString("getRegister"));
    QCOMPARE(m_host->runs.at(1).data, (QVariantMap{{"channel", "direction"}}));
    // A register read answers in "cmd_success".
    m_host->answer(1, {{"cmd_success", QVariantList{1}}});
    QCOMPARE(m_backend->getChannelAt(0)->value(), QVariant("Loosening"));
}

void TestPanelRules::toolInfoTextInKeyOrder()
{
    QSignalSpy changed(m_backend, &BeMaintenanceDeviceHytorc::toolInfoChanged);
    m_backend->refreshToolInfo();
    m_host->answer(0, {{"cmd_success", true}, {"deviceInformation", QVariantMap{{"serial", "S1"}, {"model", "M1"}}}});
    QCOMPARE(m_backend->toolInfo(), QString("model: M1\nserial: S1"));

    m_backend->refreshToolInfo();
    m_host->answer(1, {{"cmd_success", false}, {"deviceInformation", QVariantMap{{"model", "M2"}}}});
    QCOMPARE(m_backend->toolInfo(), QString("model: M1\nserial: S1"));
    QCOMPARE(changed.count(), 1);
}

QTEST_GUILESS_MAIN(TestPanelRules)
#include "test_panel_rules.moc"
