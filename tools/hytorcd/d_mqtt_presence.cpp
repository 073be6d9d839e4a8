#include "d_mqtt_presence.h"

#include "d_mqtt_link.h"
#include "d_result_record.h"
#include "d_station_service.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

DMqttPresence::DMqttPresence(DStationService* service, DMqttLink* link, const QString& prefix, QObject* parent)
    : QObject(parent)
    , m_service(service)
    , m_link(link)
    , m_statusTopic(prefix.toUtf8() + "/status")
    , m_toolTopic(prefix.toUtf8() + "/tool")
    , m_toolConnected(service->isToolConnected())
    , m_since(QDateTime::currentDateTimeUtc())
{
    m_link->setWill(m_statusTopic, status(false));
    connect(link, &DMqttLink::sigConnected, this, &DMqttPresence::publishAll);
    connect(service, &DStationService::sigToolStateChanged, this, &DMqttPresence::onToolStateChanged);
    connect(service, &DStationService::sigToolIdentified, this, &DMqttPresence::publishTool);
}

void DMqttPresence::goOffline()
{
    m_link->publish(m_statusTopic, status(false), true);
}

// The last will reports the tool disconnected too: nobody watches it once the station is gone.
QByteArray DMqttPresence::status(bool online) const
{
    const bool tool = online && m_toolConnected;
    static const QStringList keys{QStringLiteral("state"), QStringLiteral("tool"), QStringLiteral("toolSerial"),
                                  QStringLiteral("since"), QStringLiteral("resultsLost")};
    QVariantMap values{
        {keys.at(0), online ? QStringLiteral("online") : QStringLiteral("offline")},
        {keys.at(1), tool ? QStringLiteral("connected") : QStringLiteral("disconnected")},
        {keys.at(2), m_service->toolSerial()},
        {keys.at(3), m_since.toString(Qt::ISODateWithMs)},
    };
    if (!m_resultsLost.isEmpty())
        values.insert(keys.at(4), m_resultsLost);
    return DResultRecord::jsonLine(values, keys);
}

void DMqttPresence::onEventRecorded(const QString& kind, const QString& text)
{
    if (kind != QLatin1String("results-lost"))
        return;
    m_resultsLost = text;
    m_link->setWill(m_statusTopic, status(false));
    m_link->publish(m_statusTopic, status(true), true);
}

void DMqttPresence::onToolStateChanged(bool connected)
{
    if (connected == m_toolConnected)
        return;
    m_toolConnected = connected;
    m_since = QDateTime::currentDateTimeUtc();
    m_link->setWill(m_statusTopic, status(false));
    m_link->publish(m_statusTopic, status(true), true);
}

void DMqttPresence::publishAll()
{
    m_link->publish(m_statusTopic, status(true), true);
    publishTool();
}

void DMqttPresence::publishTool()
{
    if (m_service->toolInfo().isEmpty())
        return;
    const QJsonObject object{
        {QStringLiteral("toolInfo"), QJsonObject::fromVariantMap(m_service->toolInfo())},
        {QStringLiteral("programs"), QJsonArray::fromVariantList(m_service->programs())},
    };
    m_link->publish(m_toolTopic, QJsonDocument(object).toJson(QJsonDocument::Compact), true);
}
