#ifndef D_MQTT_REPLAYER_H
#define D_MQTT_REPLAYER_H

#include <QByteArray>
#include <QObject>
#include <QPair>
#include <QQueue>
#include <QSet>

class DMqttLink;
class DResultJournal;

// The journal's rows sent again on PREFIX/results when a consumer that found a gap asks on
// PREFIX/replay with {"from": A, "to": B}; then PREFIX/replayed says which ids of A..B the
// journal does not hold ({"from": A, "to": B, "missing": [[a, b], ...]}), so that the consumer
// records them as lost instead of asking for ever. B past the journal's last id stands for that
// id (a consumer asking for whatever came after what it holds); A past it is no request. A
// connection lost drops the replay under way: the consumer asks again.
class DMqttReplayer : public QObject
{
    Q_OBJECT
public:
    static constexpr int c_window = 500;       // rows published and not yet acknowledged, at most
    static constexpr int c_maxRequests = 100;  // requests waiting, beyond which one is refused

    DMqttReplayer(DResultJournal* journal, DMqttLink* link, const QString& prefix, QObject* parent = nullptr);

private:
    void onMessage(const QByteArray& topic, const QByteArray& payload);
    void onAcknowledged(int messageId);
    void onLost();
    void pump();
    void finish();

    DResultJournal* m_journal;
    DMqttLink* m_link;
    QByteArray m_requestTopic;
    QByteArray m_resultsTopic;
    QByteArray m_answerTopic;
    QQueue<QPair<qint64, qint64>> m_requests;  // the first is under way
    qint64 m_cursor = 0;                        // the last id of the current request read
    QList<QPair<qint64, qint64>> m_missing;
    QSet<int> m_inFlight;
};

#endif // D_MQTT_REPLAYER_H
