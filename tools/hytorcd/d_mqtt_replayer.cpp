#include "d_mqtt_replayer.h"

#include "d_message_handler.h"
#include "d_mqtt_link.h"
#include "d_result_journal.h"
#include "d_result_record.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

DMqttReplayer::DMqttReplayer(DResultJournal* journal, DMqttLink* link, const QString& prefix, QObject* parent)
    : QObject(parent)
    , m_journal(journal)
    , m_link(link)
    , m_requestTopic(prefix.toUtf8() + "/replay")
    , m_resultsTopic(prefix.toUtf8() + "/results")
    , m_answerTopic(prefix.toUtf8() + "/replayed")
{
    link->subscribe(m_requestTopic);
    connect(link, &DMqttLink::sigMessage, this, &DMqttReplayer::onMessage);
    connect(link, &DMqttLink::sigAcknowledged, this, &DMqttReplayer::onAcknowledged);
    connect(link, &DMqttLink::sigLost, this, &DMqttReplayer::onLost);
}

void DMqttReplayer::onMessage(const QByteArray& topic, const QByteArray& payload)
{
    if (topic != m_requestTopic)
        return;
    const QJsonObject request = QJsonDocument::fromJson(payload).object();
    const qint64 from = request.value(QStringLiteral("from")).toVariant().toLongLong();
    const qint64 to = request.value(QStringLiteral("to")).toVariant().toLongLong();
    if (!request.value(QStringLiteral("from")).isDouble() || !request.value(QStringLiteral("to")).isDouble() || from < 1
        || to < from) {
        DMessageHandler::say(QStringLiteral("mqtt: replay request ignored: \"%1\" is not {\"from\": A, \"to\": B} with 1 <= A <= B")
                                 .arg(QString::fromUtf8(payload.left(80))));
        return;
    }
    // Ids past the journal's last are not missing: they have not happened yet.
    const qint64 last = qMin(to, m_journal->lastId());
    if (from > last || m_requests.contains({from, last}))
        return;
    if (m_requests.size() >= c_maxRequests) {
        DMessageHandler::say(QStringLiteral("mqtt: replay of %1 to %2 refused: %3 requests wait already").arg(from).arg(last).arg(c_maxRequests));
        return;
    }
    m_requests.enqueue({from, last});
    if (m_requests.size() == 1) {
        m_cursor = from - 1;
        pump();
    }
}

// Refilled by half a window at a time: one journal read for many rows.
void DMqttReplayer::onAcknowledged(int messageId)
{
    if (m_inFlight.remove(messageId) && m_inFlight.size() <= c_window / 2)
        pump();
}

void DMqttReplayer::onLost()
{
    m_requests.clear();
    m_missing.clear();
    m_inFlight.clear();
}

// Reads on from the cursor while the window has room; the ids the journal skips are missing.
void DMqttReplayer::pump()
{
    while (!m_requests.isEmpty() && m_link->isConnected() && m_inFlight.size() < c_window) {
        const qint64 to = m_requests.head().second;
        if (m_cursor >= to) {
            finish();
            continue;
        }
        DResultJournal::DQuery query;
        query.sinceId = m_cursor;
        query.limit = qMin<qint64>(c_window - m_inFlight.size(), to - m_cursor);
        QString error;
        qint64 last = m_cursor;
        const bool read = m_journal->forEach(query, [&](const QVariantMap& row) {
            const qint64 id = row.value(QStringLiteral("id")).toLongLong();
            if (id > to)
                return false;
            if (id > last + 1)
                m_missing << qMakePair(last + 1, id - 1);
            const int messageId = m_link->publish(m_resultsTopic, DResultRecord::jsonLine(row, DResultRecord::journalKeys()), false);
            if (messageId == 0)
                return false;
            m_inFlight.insert(messageId);
            last = id;
            return true;
        }, &error);
        if (!read) {
            DMessageHandler::say(QStringLiteral("mqtt: replay of %1 to %2 stopped: %3").arg(m_requests.head().first).arg(to).arg(error));
            return onLost();
        }
        if (last == m_cursor || last == to) {  // nothing more in the journal up to `to`
            if (last < to)
                m_missing << qMakePair(last + 1, to);
            m_cursor = to;
        } else {
            m_cursor = last;
        }
    }
}

void DMqttReplayer::finish()
{
    const QPair<qint64, qint64> done = m_requests.dequeue();
    QJsonArray missing;
    for (const auto& range : qAsConst(m_missing))
        missing.append(QJsonArray{range.first, range.second});
    const QJsonObject answer{{QStringLiteral("from"), done.first}, {QStringLiteral("to"), done.second},
                             {QStringLiteral("missing"), missing}};
    m_link->publish(m_answerTopic, QJsonDocument(answer).toJson(QJsonDocument::Compact), false);
    m_missing.clear();
    if (!m_requests.isEmpty())
        m_cursor = m_requests.head().first - 1;
}
