#ifndef D_MQTT_SETTINGS_H
#define D_MQTT_SETTINGS_H

#include "d_station_config.h"

#include <QString>

// Where and how a station program reaches the plant's MQTT broker: the mqtt-* keys, checked and
// with their defaults filled in. The password comes from a file, never from the command line.
struct DMqttSettings {
    QString host;
    int port = 0;
    bool tls = false;
    QString caFile;    // empty with tls: the system's authorities
    QString certFile;  // a client certificate, with its key
    QString keyFile;
    QString user;
    QString password;
    QString topic;     // the prefix of every topic: PREFIX/results, PREFIX/status, PREFIX/tool
    QString clientId;
    bool cleanSession = true;  // false: the broker keeps the client's subscriptions and queues for it while it is away

    // The connection's keys: mqtt, mqtt-ca, mqtt-cert, mqtt-key, mqtt-user, mqtt-password-file, mqtt-client-id.
    static QList<DStationConfig::DKey> configKeys(const QString& clientIdDefault);
    // A topic the broker takes as it is: no wildcards, no empty level at either end.
    static bool validTopic(const QString& text);
    // The connection's keys set in `config`; false with one line naming the key at fault.
    bool read(const DStationConfig& config, const QString& clientIdDefault, QString* error);
    // mqtt://host:port or mqtts://host:port, as said in messages.
    QString url() const;
    // Fills host, port and tls from `url`; false when it is not mqtt(s)://host[:port].
    bool setUrl(const QString& url);
};

#endif // D_MQTT_SETTINGS_H
