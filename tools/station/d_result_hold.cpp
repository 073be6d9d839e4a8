#include "d_result_hold.h"

#include "d_message_handler.h"
#include "d_result_journal.h"

namespace {

constexpr int c_firstBackoffMs = 1000;
constexpr int c_maxBackoffMs = 8000;
constexpr qint64 c_sayEveryMs = 60000;
const QString c_lostKind = QStringLiteral("results-lost");

QString isoSeconds(const QDateTime& when)
{
    return when.toUTC().toString(Qt::ISODate);
}

} // namespace

DResultHold::DResultHold(DResultJournal* journal, const QString& station, QObject* parent)
    : QObject(parent)
    , m_journal(journal)
    , m_station(station)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &DResultHold::commit);
}

// While the journal refuses, a result only joins the queue: the retry commits them all in order.
void DResultHold::take(const QVariantMap& record, const QString& toolSerial)
{
    if (m_held.size() >= m_limit) {
        ++m_lost;
        return;
    }
    m_held.enqueue({record, toolSerial, QDateTime::currentMSecsSinceEpoch()});
    if (!m_retry.isActive())
        commit();
}

void DResultHold::flush()
{
    m_retry.stop();
    commit();
    m_retry.stop();
    if (!m_held.isEmpty() || m_lost > 0)
        DMessageHandler::say(QStringLiteral("stopping with %1 result(s) that the journal did not take (%2): they are lost")
                                 .arg(m_held.size() + m_lost).arg(m_reason));
}

void DResultHold::commit()
{
    QString error;
    while (!m_held.isEmpty()) {
        const DHeld& next = m_held.head();
        if (m_journal->append(next.record, m_station, next.toolSerial, &error, next.receivedAtMs) == 0)
            return failed(error);
        m_held.dequeue();
        if (!m_reason.isEmpty())
            ++m_writtenLate;
    }
    if (!m_reason.isEmpty())
        resumed();
    if (m_lost > 0 && !recordLoss(&error))
        failed(error);
}

// "N results lost: disk full from T1 to T2": in the journal first, so that every consumer learns of it.
bool DResultHold::recordLoss(QString* error)
{
    const QString text = QStringLiteral("%1 results lost: %2 from %3 to %4")
                             .arg(m_lost)
                             .arg(m_lossReason, isoSeconds(m_failingSince), isoSeconds(m_resumedAt));
    if (!m_journal->recordEvent(m_station, c_lostKind, text, error))
        return false;
    DMessageHandler::say(text);
    m_lost = 0;
    return true;
}

void DResultHold::failed(const QString& error)
{
    const QString reason = reasonOf(error);
    if (m_reason.isEmpty()) {
        if (m_lost == 0)
            m_failingSince = QDateTime::currentDateTimeUtc();
        m_reason = reason;
        m_lossReason = reason;
        m_backoffMs = c_firstBackoffMs;
        m_lastSaid.start();
        DMessageHandler::say(QStringLiteral("results cannot be committed (%1): holding them in memory, %2 waiting, "
                                            "up to %3; check %4")
                                 .arg(reason).arg(m_held.size()).arg(m_limit).arg(m_journal->path()));
    } else if (m_lastSaid.elapsed() >= c_sayEveryMs) {
        m_lastSaid.start();
        DMessageHandler::say(QStringLiteral("results still cannot be committed (%1): %2 held, %3 lost")
                                 .arg(reason).arg(m_held.size()).arg(m_lost));
    }
    m_retry.start(m_backoffMs);
    m_backoffMs = qMin(m_backoffMs * 2, c_maxBackoffMs);
}

void DResultHold::resumed()
{
    m_resumedAt = QDateTime::currentDateTimeUtc();
    DMessageHandler::say(QStringLiteral("results committed again after %1 s: %2 held result(s) written")
                             .arg(m_failingSince.secsTo(m_resumedAt))
                             .arg(m_writtenLate));
    m_reason.clear();
    m_writtenLate = 0;
}

// The journal's error in the words of the event's text: "disk full" rather than SQLite's.
QString DResultHold::reasonOf(const QString& error)
{
    if (error.contains(QLatin1String("disk is full")))
        return QStringLiteral("disk full");
    if (error.contains(QLatin1String("readonly")))
        return QStringLiteral("journal read-only");
    if (error.contains(QLatin1String("disk I/O error")))
        return QStringLiteral("disk I/O error");
    return error.section(QStringLiteral(": "), 2).trimmed();  // after "journal PATH: what: "
}
