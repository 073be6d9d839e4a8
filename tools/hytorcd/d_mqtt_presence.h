#ifndef D_MQTT_PRESENCE_H
#define D_MQTT_PRESENCE_H

#include <QByteArray>
#include <QDateTime>
#include <QObject>

class DMqttLink;
class DStationService;

// What a dashboard shows of the station, retained at the broker: PREFIX/status (the station
// online or offline, its tool connected or not, since when; the broker's last will says
// offline when the station dies; "resultsLost", the journal's text of the last loss this run, once
// results were lost) and PREFIX/tool (the tool's identity and programs).
class DMqttPresence : public QObject
{
    Q_OBJECT
public:
    DMqttPresence(DStationService* service, DMqttLink* link, const QString& prefix, QObject* parent = nullptr);

    // Publishes the offline status, before a clean disconnect.
    void goOffline();
    // The journal recorded an event: a loss of results is published at once in the status.
    void onEventRecorded(const QString& kind, const QString& text);

private:
    QByteArray status(bool online) const;
    void onToolStateChanged(bool connected);
    void publishAll();
    void publishTool();

    DStationService* m_service;
    DMqttLink* m_link;
    QByteArray m_statusTopic;
    QByteArray m_toolTopic;
    bool m_toolConnected = false;
    QDateTime m_since;
    QString m_resultsLost;
};

#endif // D_MQTT_PRESENCE_H
