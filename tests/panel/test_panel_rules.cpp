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
    void init()
    {
        m_host = new DHeldBackendHost;
        m_backend = new BeMaintenanceDeviceHytorc;
        QVERIFY(m_backend->attachToHost(m_host));
    }

    void cleanup()
    {
        delete m_backend;
        delete m_host;
    }

    // A value set twice is stored and announced once; what a channel cannot take is refused or left unset.
    // A channel's type is the one its description gives.
    void channelValue()
    {
        const auto check = [](const QString& id, const QVariant& input, const QVariant& stored, bool accepted = true) {
            const auto channel = DHytorcChannel::create({{"id", id}});
            QSignalSpy changed(channel.data(), &DHytorcChannel::valueChanged);
            QCOMPARE(channel->setValue(input), accepted);
            QCOMPARE(channel->setValue(input), accepted);
            QCOMPARE(channel->value(), stored);
            QCOMPARE(changed.count(), stored.isValid() ? 1 : 0);
        };
        check("direction", QVariantList{1}, "Loosening");
        check("direction", QVariantList{2}, QString());
        check("direction", QVariantList{9}, QString());
        check("currentPreset", QVariantList{"P2"}, "P2");
        check("direction", QVariantList{1, 2, 3}, QVariant());
        check("motorRun", true, "Fastening");
        check("motorRun", QVariantMap{{"a", 1}}, QVariant(), false);

        // "type" alone sets the type, stored as given: not taken from the id, not clamped.
        const auto type = [](const QVariantMap& description, int stored) { QCOMPARE(int(DHytorcChannel::create(description)->type()), stored); };
        type({{"id", "motorRun"}}, DHytorcChannel::CeCtUnknown);
        type({{"id", "motorRun"}, {"type", 1}}, DHytorcChannel::CeCtString);
        type({{"id", "direction"}, {"type", 7}}, 7);
    }

    // The plug-in declares no setDirection: the panel's road shows its kind and failure, not its data.
    void directionQueuedAsAsked()
    {
        m_backend->setDirection(true);
        QCOMPARE(m_host->runs.size(), 1);
        QCOMPARE(m_host->runs.first().name, QString("setDirection"));
        QCOMPARE(m_host->runs.first().data, (QVariantMap{{"direction", 1}}));
    }

    void refusedClickIsRetriedOnLaterTurns()
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

    void channelsReadOnlyWhenNothingIsPending()
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

    void toolInfoTextInKeyOrder()
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

private:
    DHeldBackendHost* m_host = nullptr;
    BeMaintenanceDeviceHytorc* m_backend = nullptr;
};

QTEST_GUILESS_MAIN(TestPanelRules)
#include "test_panel_rules.moc"
