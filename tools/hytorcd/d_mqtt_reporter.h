#ifndef D_MQTT_REPORTER_H
#define D_MQTT_REPORTER_H

#include "d_station_config.h"

#include <QObject>

class DMqttLink;
class DMqttPresence;
class DMqttPublisher;
class DMqttReplayer;
class DResultJournal;
class DStationService;

// hytorcd's MQTT part: the link to the plant's broker, the results from the journal, the
// station's presence and the journal's rows sent again when a collector asks. Runs only when the mqtt key is set.
class DMqttReporter : public QObject
{
    Q_OBJECT
public:
    static QList<DStationConfig::DKey> configKeys();

    DMqttReporter(DResultJournal* journal, DStationService* service, QObject* parent = nullptr);

    // Reads the mqtt-* keys and starts connecting; false with one line when they do not go together.
    bool start(const DStationConfig& config, QString* error);
    // The offline status and a clean disconnect (waiting 1 s at most), the watermark stored.
    void stop();
    // Whether the broker is connected now.
    bool isConnected() const;

private:
    DResultJournal* m_journal;
    DStationService* m_service;
    DMqttLink* m_link = nullptr;
    DMqttPublisher* m_publisher = nullptr;
    DMqttPresence* m_presence = nullptr;
    DMqttReplayer* m_replayer = nullptr;
};

#endif // D_MQTT_REPORTER_H
