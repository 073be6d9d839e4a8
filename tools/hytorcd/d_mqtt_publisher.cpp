#include "d_mqtt_publisher.h"

#include "d_message_handler.h"
#include "d_mqtt_link.h"
#include "d_result_journal.h"
#include "d_result_record.h"

namespace {
// Acknowledgements come by the thousand per second; the journal stores their watermark at this pace.
constexpr int c_storeMs = 100;
} // namespace

const QString DMqttPublisher::c_ackedKey = QStringLiteral("mqtt.acked");

DMqttPublisher::DMqttPublisher(DResultJournal* journal, DMqttLink* link, const QString& prefix, QObject* parent)
    : QObject(parent)
    , m_journal(journal)
    , m_link(link)
    , m_topic(prefix.toUtf8() + "/results")
    , m_acked(journal->state(c_ackedKey).toLongLong())
    , m_stored(m_acked)
{
    m_storeTimer.setSingleShot(true);
    connect(&m_storeTimer, &QTimer::timeout, this, &DMqttPublisher::store);
    connect(link, &DMqttLink::sigConnected, this, &DMqttPublisher::onConnected);
    connect(link, &DMqttLink::sigLost, this, &DMqttPublisher::onLost);
    connect(link, &DMqttLink::sigAcknowledged, this, &DMqttPublisher::onAcknowledged);
    connect(journal, &DResultJournal::sigCommitted, this, &DMqttPublisher::onCommitted);
}

void DMqttPublisher::store()
{
    m_storeTimer.stop();
    QString error;
    if (m_acked == m_stored)
        return;
    if (m_journal->setState(c_ackedKey, QString::number(m_acked), &error))
        m_stored = m_acked;
    else
        DMessageHandler::say(QStringLiteral("mqtt: %1 (results after %2 will be sent again)").arg(error).arg(m_stored));
}

// Resumes after the last acknowledged result; what was in flight on the lost connection goes again.
void DMqttPublisher::onConnected()
{
    m_published = m_acked;
    m_ahead.clear();
    m_more = true;
    m_inFlight.clear();
    m_ids.clear();
    const qint64 last = m_journal->lastId();
    if (last > m_acked) {
        m_backlogEnd = last;
        DMessageHandler::say(QStringLiteral("mqtt: backlog of %1 result(s) being sent").arg(last - m_acked));
    }
    fill();
}

void DMqttPublisher::onLost()
{
    store();
    m_backlogEnd = 0;
}

// Moves the watermark over the acknowledged ids at the front; the broker may acknowledge out of order.
void DMqttPublisher::onAcknowledged(int messageId)
{
    const qint64 id = m_ids.take(messageId);
    if (id == 0)
        return;
    m_inFlight.insert(id, true);
    while (!m_inFlight.isEmpty() && m_inFlight.first()) {
        m_acked = m_inFlight.firstKey();
        m_inFlight.erase(m_inFlight.begin());
    }
    if (!m_storeTimer.isActive())
        m_storeTimer.start(c_storeMs);
    if (m_backlogEnd != 0 && m_acked >= m_backlogEnd) {
        m_backlogEnd = 0;
        DMessageHandler::say(QStringLiteral("mqtt: backlog sent"));
    }
    // At once, so that the broker's next acknowledgements do not wait for a TCP ACK of ours.
    fill();
}

void DMqttPublisher::onCommitted()
{
    m_more = true;
    fill();
}

void DMqttPublisher::fill()
{
    while (m_link->isConnected() && m_inFlight.size() < c_window && (!m_ahead.isEmpty() || readAhead())) {
        const QPair<qint64, QByteArray> row = m_ahead.head();
        const int messageId = m_link->publish(m_topic, row.second, false);
        if (messageId == 0)
            return;  // the connection is going; the next one starts over from m_acked
        m_ahead.dequeue();
        m_published = row.first;
        m_inFlight.insert(row.first, false);
        m_ids.insert(messageId, row.first);
    }
}

// The rows after m_published, c_readAhead at most: one journal read for many results.
bool DMqttPublisher::readAhead()
{
    if (!m_more)
        return false;
    DResultJournal::DQuery query;
    query.sinceId = m_published;
    query.limit = c_readAhead;
    QString error;
    const bool read = m_journal->forEach(query, [this](const QVariantMap& row) {
        m_ahead.enqueue({row.value(QStringLiteral("id")).toLongLong(), DResultRecord::jsonLine(row, DResultRecord::journalKeys())});
        return true;
    }, &error);
    if (!read && !m_readFailed)
        DMessageHandler::say(QStringLiteral("mqtt: %1 (trying again with the next result)").arg(error));
    m_readFailed = !read;
    m_more = read && m_ahead.size() == c_readAhead;
    return !m_ahead.isEmpty();
}
