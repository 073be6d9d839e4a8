#ifndef D_WEB_FEED_H
#define D_WEB_FEED_H

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

// What the web's threads learn from the service's event loop: the newest committed id and the
// station's state, as Server-Sent Events. The loop only stores and notifies (microseconds), so
// no browser ever holds up a report or an Open Protocol reply; each event stream reads the
// results themselves from the journal on its own thread.
class DWebFeed
{
public:
    // What one stream has seen: the last result id and the last state event.
    struct DCursor {
        qint64 resultId = 0;
        quint64 event = 0;
    };

    // The event loop's side.
    void committed(qint64 id);
    // A change of one part of the state ("tool", "part", "links"): `data` is its JSON object.
    void changed(const QByteArray& type, const QByteArray& data);
    // Wakes every stream for good: the service is stopping.
    void close();

    // The web threads' side: waits up to `timeoutMs` for news past `cursor`; the state events past
    // it as "event:"/"data:" text (the cursor moved past them), and whether the stream may go on.
    bool wait(DCursor* cursor, int timeoutMs, QByteArray* events, qint64* newestId);
    // The current state as events, one per type; moves `cursor` to now.
    QByteArray current(DCursor* cursor) const;
    // The status object: the newest id and every part's last JSON, keyed by its type.
    QByteArray status() const;
    qint64 newestId() const;

private:
    struct DEvent {
        quint64 number;
        QByteArray type;
        QByteArray data;
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_news;
    qint64 m_newestId = 0;
    quint64 m_events = 0;
    std::deque<DEvent> m_recent;  // the last state changes, for streams that wait
    std::map<QByteArray, QByteArray> m_latest;  // each type's current data
    bool m_closed = false;
};

#endif // D_WEB_FEED_H
