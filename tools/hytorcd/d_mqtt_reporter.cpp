#include "d_mqtt_reporter.h"

#include "d_mqtt_link.h"
#include "d_mqtt_presence.h"
#include "d_mqtt_publisher.h"
#include "d_mqtt_replayer.h"
#include "d_mqtt_settings.h"
#include "d_result_journal.h"
#include "d_station_service.h"

namespace {
constexpr int c_closeGraceMs = 1000;
} // namespace

QList<DStationConfig::DKey> DMqttReporter::configKeys()
{
    return DMqttSettings::configKeys(QStringLiteral("hytorcd-<station>")) + QList<DStationConfig::DKey>{
        {QStringLiteral("mqtt-topic"), QString(), QStringLiteral("a topic without wildcards or a / at either end"),
         DMqttSettings::validTopic, QStringLiteral("The prefix of the station's topics. Default: hytorc/<station>.")},
    };
}

DMqttReporter::DMqttReporter(DResultJournal* journal, DStationService* service, QObject* parent)
    : QObject(parent)
    , m_journal(journal)
    , m_service(service)
{
}

bool DMqttReporter::start(const DStationConfig& config, QString* error)
{
    DMqttSettings settings;
    const QString station = m_service->station();
    if (!settings.read(config, QStringLiteral("hytorcd-") + station, error))
        return false;
    settings.topic = config.isSet(QStringLiteral("mqtt-topic")) ? config.value(QStringLiteral("mqtt-topic"))
                                                                 : QStringLiteral("hytorc/") + station;
    if (!DMqttSettings::validTopic(settings.topic)) {
        *error = QStringLiteral("the station name \"%1\" cannot be part of an MQTT topic: give mqtt-topic").arg(station);
        return false;
    }
    m_link = new DMqttLink(settings, this);
    m_publisher = new DMqttPublisher(m_journal, m_link, settings.topic, this);
    m_presence = new DMqttPresence(m_service, m_link, settings.topic, this);
    connect(m_journal, &DResultJournal::sigEventRecorded, m_presence, &DMqttPresence::onEventRecorded);
    m_replayer = new DMqttReplayer(m_journal, m_link, settings.topic, this);
    m_link->open();
    return true;
}

void DMqttReporter::stop()
{
    if (!m_link)
        return;
    m_presence->goOffline();
    m_link->close(c_closeGraceMs);
    m_publisher->store();
}

bool DMqttReporter::isConnected() const { return m_link && m_link->isConnected(); }
