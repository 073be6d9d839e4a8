#ifndef D_POSTGRES_RESULTS_H
#define D_POSTGRES_RESULTS_H

#include <QString>
#include <QVariantList>

#include <functional>

class DPostgresConnection;

// The plant database's results read as a station's journal reads: rows with the keys of
// DResultRecord::journalKeys() in that order ("receivedAt" as ISO 8601 UTC, a value the
// station did not send as ""), by station then id, streamed row by row.
class DPostgresResults
{
public:
    struct DQuery {
        QString station;     // empty: every station
        qint64 sinceId = 0;  // rows with an id above this one (each station's own ids)
        qint64 fromMs = 0;   // received at or after (UTC ms since the epoch); 0 = no bound
        qint64 toMs = 0;
        qint64 limit = 0;
        int progId = 0;      // 0: every program
        QString status;      // the tool's word, case ignored
        QString identifier;  // any identifier part
    };

    explicit DPostgresResults(DPostgresConnection* connection);

    // Calls `each` with a row's values in the order of journalKeys() until it returns false; false on a read error.
    bool forEachValues(const DQuery& query, const std::function<bool(const QVariantList&)>& each, QString* error);

private:
    DPostgresConnection* m_connection;
};

#endif // D_POSTGRES_RESULTS_H
