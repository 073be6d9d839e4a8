#ifndef D_COLLECTOR_STORE_H
#define D_COLLECTOR_STORE_H

#include "d_collected_result.h"
#include "d_postgres_connection.h"

#include <QList>
#include <QString>

#include <functional>

// The collector's side of the plant's PostgreSQL: the schema (created and migrated here, its
// version in schema_version), and each batch of results written in one transaction with the
// station rows and the completeness records that came with it. A result already there (the
// broker delivers at least once, collectors share the load) is kept once: ON CONFLICT DO NOTHING.
class DCollectorStore
{
public:
    // A statement that goes with the next batch (a gap asked, closed, or recorded as lost).
    struct DStatement {
        QByteArray sql;
        DPostgresConnection::DParams params;
    };
    // Held ids of a station in a range: the results there and the ids recorded as lost.
    struct DIsland {
        QString station;
        qint64 first;
        qint64 last;
        bool lost;
    };

    static constexpr int c_rowsPerStatement = 500;

    // Connects and brings the schema to this program's version; false with one line.
    bool open(const QString& connInfo, const QString& password, QString* error);
    bool isOpen() const { return m_connection.isOpen(); }
    DPostgresConnection* connection() { return &m_connection; }

    // Writes the results, the stations' last ids and `statements` in one transaction; *added
    // counts the results that were new. False (nothing written) with the server's reason.
    bool write(const QList<DCollectedResult>& results, const QList<DStatement>& statements, int* added, QString* error);
    // The same results one by one, each in its own transaction: the ones the server refuses are
    // passed to `refused` with its reason, the others are kept (*added of them new). False when the connection failed.
    bool writeEach(const QList<DCollectedResult>& results, const std::function<void(const DCollectedResult&, const QString&)>& refused,
                   int* added, QString* error);
    // Held ids of `station` between first and last, as ranges.
    bool islands(const QString& station, qint64 first, qint64 last, QList<DIsland>* found, QString* error);

    static DStatement askGap(const QString& station, qint64 first, qint64 last);
    static DStatement closeGap(const QString& station, qint64 first, qint64 last);
    static DStatement recordLost(const QString& station, qint64 first, qint64 last);
    static DStatement recordStatus(const QString& station, const QByteArray& status);
    // The schema this program writes.
    static int schemaVersion();

private:
    bool migrate(QString* error);
    bool run(const QByteArray& sql, const DPostgresConnection::DParams& params, QString* error);
    bool insert(const QList<DCollectedResult>& results, int from, int count, int* added, QString* error);
    bool touchStations(const QList<DCollectedResult>& results, QString* error);

    DPostgresConnection m_connection;
};

#endif // D_COLLECTOR_STORE_H
