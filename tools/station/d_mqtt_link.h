#ifndef D_MQTT_LINK_H
#define D_MQTT_LINK_H

#include "d_mqtt_settings.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTimer>

#include <memory>

struct DMqttSession;

// The connection to the broker, kept up forever: each attempt is a fresh libmosquitto client
// run by a thread of its own (name lookup, TCP, TLS and MQTT all happen there), so the event
// loop never waits on the broker; the thread's news comes back as queued calls. An attempt
// that has no answer within 10 s is given up; the next one follows after 1 s doubling to 5 s
// (every second while the broker's port is closed).
// One line on stderr per change of state.
class DMqttLink : public QObject
{
    Q_OBJECT
public:
    // Messages the broker has not acknowledged yet, at most, beyond which the client holds them back.
    static constexpr int c_maxInFlight = 110;

    explicit DMqttLink(const DMqttSettings& settings, QObject* parent = nullptr);
    ~DMqttLink() override;

    void open();
    // Sends what is queued and a clean DISCONNECT, waiting up to `graceMs`; acknowledgements
    // that came in by then are still signalled.
    void close(int graceMs);
    bool isConnected() const { return m_state == CeConnected; }
    QString url() const { return m_settings.url(); }
    // The retained message the broker publishes when the station dies, from the next connection on.
    void setWill(const QByteArray& topic, const QByteArray& payload);
    // Queues a QoS 1 message; its message id, or 0 when the connection is gone.
    int publish(const QByteArray& topic, const QByteArray& payload, bool retain);
    // Subscribes (QoS 1) on every connection from the next on; messages come as sigMessage.
    void subscribe(const QByteArray& topic) { m_subscriptions << topic; }

signals:
    void sigConnected();
    void sigLost();
    // The broker acknowledged (PUBACK) the message of this id.
    void sigAcknowledged(int messageId);
    // A message of a subscribed topic (the broker has its acknowledgement already).
    void sigMessage(const QByteArray& topic, const QByteArray& payload);

private:
    enum EnState { CeIdle, CeConnecting, CeConnected, CeWaiting };

    void connectToBroker();
    void onSessionEvent(quint64 generation, int event, int value);
    void dropSession();
    // A closed port (the broker's host is up, the broker restarting) costs nothing to probe:
    // it is tried every second; anything else waits 1 s doubling to 5 s.
    void waitAndRetry(const QString& reason, bool portClosed = false);

    DMqttSettings m_settings;
    std::shared_ptr<DMqttSession> m_session;
    quint64 m_generation = 0;
    EnState m_state = CeIdle;
    QByteArray m_willTopic;
    QByteArray m_willPayload;
    QString m_refusal;
    bool m_loginRefused = false;
    QList<QByteArray> m_subscriptions;
    bool m_failing = false;  // said once until the next connection
    int m_backoffSeconds = 1;
    QTimer m_retry;
    QTimer m_answer;
};

#endif // D_MQTT_LINK_H
