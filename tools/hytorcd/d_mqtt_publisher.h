#ifndef D_MQTT_PUBLISHER_H
#define D_MQTT_PUBLISHER_H

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QQueue>
#include <QTimer>

class DMqttLink;
class DResultJournal;

// Every committed result to PREFIX/results, read from the journal in id order, at least once:
// the id up to which the broker acknowledged all of them is kept in the journal, and each
// connection resumes after it with at most c_window results unacknowledged. A result is
// published twice only when its acknowledgement was lost with a connection or a crash.
class DMqttPublisher : public QObject
{
    Q_OBJECT
public:
    static constexpr int c_window = 100;
    static constexpr int c_readAhead = 500;
    static const QString c_ackedKey;

    DMqttPublisher(DResultJournal* journal, DMqttLink* link, const QString& prefix, QObject* parent = nullptr);

    // Every result up to this id is at the broker.
    qint64 acknowledgedId() const { return m_acked; }
    // Stores acknowledgedId() now, as before the journal closes.
    void store();

private:
    void onConnected();
    void onLost();
    void onAcknowledged(int messageId);
    void onCommitted();
    void fill();
    bool readAhead();

    DResultJournal* m_journal;
    DMqttLink* m_link;
    QByteArray m_topic;
    qint64 m_acked = 0;
    qint64 m_stored = 0;
    qint64 m_published = 0;       // the last id handed to the link on this connection
    QQueue<QPair<qint64, QByteArray>> m_ahead;  // the rows after it, read but not yet published
    bool m_more = true;           // the journal may hold rows after those
    QMap<qint64, bool> m_inFlight;  // ids published, acknowledged or not, above m_acked
    QHash<int, qint64> m_ids;     // message id -> result id
    qint64 m_backlogEnd = 0;      // the last id of the backlog being sent, 0 when none
    bool m_readFailed = false;
    QTimer m_storeTimer;
};

#endif // D_MQTT_PUBLISHER_H
