#include "d_mqtt_reporter.h"

#include "d_mqtt_link.h"
#include "d_mqtt_presence.h"
#include "d_mqtt_publisher.h"
#include "d_mqtt_settings.h"
#include "d_result_journal.h"
#include "d_station_service.h"

namespace {
constexpr int c_closeGraceMs = 1000;
} // namespace

QList<DStationConfig::DKey> DMqttReporter::configKeys()
{
    return DMqttSettings::configKeys();
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
    if (!settings.read(config, m_service->station(), error))
        return false;
    m_link = new DMqttLink(settings, this);
    m_publisher = new DMqttPublisher(m_journal, m_link, settings.topic, this);
    m_presence = new DMqttPresence(m_service, m_link, settings.topic, this);
    connect(m_journal, &DResultJournal::sigEventRecorded, m_presence, &DMqttPresence::onEventRecorded);
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
