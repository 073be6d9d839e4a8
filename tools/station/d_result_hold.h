#ifndef D_RESULT_HOLD_H
#define D_RESULT_HOLD_H

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QQueue>
#include <QTimer>
#include <QVariantMap>

class DResultJournal;

// The road from the tool's reports to the journal when the journal refuses them (a full
// disk): each result is held in memory, in order, and committed with those behind it as soon
// as the journal takes them again, retried with a backoff of 1 s doubling to 8 s. What is held
// is bounded: past the bound the oldest are kept, and the loss is recorded as a "results-lost"
// event once writing resumes, so that a gap is never invisible. One line when commits start
// failing, one a minute while they do, one when they succeed again.
class DResultHold : public QObject
{
    Q_OBJECT
public:
    static constexpr int c_defaultLimit = 10000;

    DResultHold(DResultJournal* journal, const QString& station, QObject* parent = nullptr);

    void setLimit(int limit) { m_limit = limit; }
    // Commits `record` now, or holds it behind those already held.
    void take(const QVariantMap& record, const QString& toolSerial);
    int held() const { return m_held.size(); }
    // One last try before the service stops; says what could not be written.
    void flush();

private:
    struct DHeld {
        QVariantMap record;
        QString toolSerial;
        qint64 receivedAtMs;
    };

    void commit();
    bool recordLoss(QString* error);
    void failed(const QString& error);
    void resumed();
    static QString reasonOf(const QString& error);

    DResultJournal* m_journal;
    QString m_station;
    int m_limit = c_defaultLimit;
    QQueue<DHeld> m_held;
    qint64 m_lost = 0;         // results dropped past the bound, not yet recorded as an event
    QString m_reason;          // why commits fail; empty while they succeed
    QString m_lossReason;      // why the results counted in m_lost were refused
    QDateTime m_failingSince;  // the loss's period starts here
    QDateTime m_resumedAt;
    QElapsedTimer m_lastSaid;
    qint64 m_writtenLate = 0;  // held results committed since writing resumed
    int m_backoffMs = 0;
    QTimer m_retry;
};

#endif // D_RESULT_HOLD_H
