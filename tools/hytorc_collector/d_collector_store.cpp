#include "d_collector_store.h"

#include <QMap>

#include <libpq-fe.h>

namespace {

// Any number the collectors agree on: the one migration at a time among all of them.
constexpr qint64 c_migrationLock = 0x4879746f7263;  // "Hytorc"

QByteArray quoted(const QString& key) { return '"' + key.toUtf8() + '"'; }

QByteArray resultsTable()
{
    QByteArrayList columns;
    for (const QString& key : DCollectedResult::columns()) {
        const bool required = key == QLatin1String("id") || key == QLatin1String("receivedAt") || key == QLatin1String("station");
        columns << quoted(key) + ' ' + DCollectedResult::sqlType(key) + (required ? " NOT NULL" : "");
    }
    return "CREATE TABLE results (" + columns.join(", ") + ", PRIMARY KEY (station, id))";
}

// Each step takes the schema from its index to the next version.
const QList<QByteArrayList>& migrations()
{
    static const QList<QByteArrayList> steps{{
        resultsTable(),
        // The plant's questions: by time, by identifier, by station and program over time.
        R"(CREATE INDEX results_received ON results ("receivedAt"))",
        R"(CREATE INDEX results_identifier ON results ("identifier"))",
        R"(CREATE INDEX results_station_program ON results (station, "progId", "receivedAt"))",
        "CREATE TABLE stations (station text PRIMARY KEY, last_id bigint NOT NULL DEFAULT 0,"
        " last_seen timestamptz, status text, status_at timestamptz)",
        "CREATE TABLE gaps (station text NOT NULL, from_id bigint NOT NULL, to_id bigint NOT NULL,"
        " state text NOT NULL CHECK (state IN ('open', 'filled', 'unrecoverable')),"
        " found_at timestamptz NOT NULL DEFAULT now(), closed_at timestamptz, PRIMARY KEY (station, from_id, to_id))",
        "CREATE TABLE unrecoverable (station text NOT NULL, from_id bigint NOT NULL, to_id bigint NOT NULL,"
        " recorded_at timestamptz NOT NULL DEFAULT now(), PRIMARY KEY (station, from_id, to_id))",
    }};
    return steps;
}

QByteArray insertStatement(int rows)
{
    const QStringList& columns = DCollectedResult::columns();
    QByteArrayList names;
    for (const QString& key : columns)
        names << quoted(key);
    QByteArrayList tuples;
    int n = 0;
    for (int row = 0; row < rows; ++row) {
        QByteArrayList marks;
        for (const QString& key : columns)
            marks << '$' + QByteArray::number(++n) + "::" + DCollectedResult::sqlType(key);
        tuples << '(' + marks.join(',') + ')';
    }
    return "INSERT INTO results (" + names.join(',') + ") VALUES " + tuples.join(',') + " ON CONFLICT DO NOTHING";
}

} // namespace

int DCollectorStore::schemaVersion() { return migrations().size(); }

bool DCollectorStore::open(const QString& connInfo, const QString& password, QString* error)
{
    if (!m_connection.open(connInfo, password, error))
        return false;
    if (migrate(error))
        return true;
    m_connection.close();
    return false;
}

bool DCollectorStore::run(const QByteArray& sql, const DPostgresConnection::DParams& params, QString* error)
{
    return bool(m_connection.exec(sql, params, error));
}

// One collector at a time creates or steps the schema; the others wait for it and find it done.
bool DCollectorStore::migrate(QString* error)
{
    QString ignored;
    if (!run("BEGIN", {}, error) || !run("SELECT pg_advisory_xact_lock(" + QByteArray::number(c_migrationLock) + ")", {}, error)
        || !run("CREATE TABLE IF NOT EXISTS schema_version (version integer NOT NULL)", {}, error))
        return run("ROLLBACK", {}, &ignored), false;
    const auto version = m_connection.exec("SELECT coalesce(max(version), 0) FROM schema_version", {}, error);
    const int current = version ? QByteArray(PQgetvalue(version.get(), 0, 0)).toInt() : -1;
    if (current > schemaVersion())
        *error = QStringLiteral("the database's schema version %1 is newer than this program's %2: use a newer hytorc-collector")
                     .arg(current).arg(schemaVersion());
    bool ok = current >= 0 && current <= schemaVersion();
    for (int step = current; ok && step < schemaVersion(); ++step) {
        for (const QByteArray& statement : migrations().at(step))
            ok = ok && run(statement, {}, error);
        ok = ok && run("INSERT INTO schema_version VALUES ($1)", {QByteArray::number(step + 1)}, error);
    }
    if (ok && run("COMMIT", {}, error))
        return true;
    run("ROLLBACK", {}, &ignored);
    return false;
}

bool DCollectorStore::write(const QList<DCollectedResult>& results, const QList<DStatement>& statements, int* added,
                            QString* error)
{
    QString ignored;
    *added = 0;
    bool ok = run("BEGIN", {}, error);
    for (int from = 0; ok && from < results.size(); from += c_rowsPerStatement)
        ok = insert(results, from, qMin(c_rowsPerStatement, results.size() - from), added, error);
    ok = ok && touchStations(results, error);
    for (const DStatement& statement : statements)
        ok = ok && run(statement.sql, statement.params, error);
    if (ok && run("COMMIT", {}, error))
        return true;
    if (m_connection.isOpen())
        run("ROLLBACK", {}, &ignored);
    *added = 0;
    return false;
}

bool DCollectorStore::writeEach(const QList<DCollectedResult>& results,
                                const std::function<void(const DCollectedResult&, const QString&)>& refused, int* added,
                                QString* error)
{
    *added = 0;
    for (int i = 0; i < results.size(); ++i) {
        int one = 0;
        QString reason;
        if (write(results.mid(i, 1), {}, &one, &reason)) {
            *added += one;
            continue;
        }
        if (!m_connection.isOpen())
            return *error = reason, false;
        refused(results.at(i), reason);
    }
    return true;
}

bool DCollectorStore::insert(const QList<DCollectedResult>& results, int from, int count, int* added, QString* error)
{
    static QMap<int, QByteArray> statements;  // by row count: the full size comes again and again
    auto it = statements.find(count);
    if (it == statements.end())
        it = statements.insert(count, insertStatement(count));
    DPostgresConnection::DParams params;
    params.reserve(size_t(count * DCollectedResult::columns().size()));
    for (int row = from; row < from + count; ++row)
        params.insert(params.end(), results.at(row).values.cbegin(), results.at(row).values.cend());
    const auto result = m_connection.execPrepared("insert" + QByteArray::number(count), it.value(), params, error);
    if (result)
        *added += QByteArray(PQcmdTuples(result.get())).toInt();
    return bool(result);
}

// In station order, so that two collectors' transactions never wait on each other in a circle.
bool DCollectorStore::touchStations(const QList<DCollectedResult>& results, QString* error)
{
    QMap<QString, qint64> last;
    for (const DCollectedResult& result : results)
        last[result.station] = qMax(last.value(result.station), result.id);
    for (auto it = last.cbegin(); it != last.cend(); ++it) {
        if (!run("INSERT INTO stations (station, last_id, last_seen) VALUES ($1, $2, now()) ON CONFLICT (station) DO UPDATE"
                 " SET last_id = greatest(stations.last_id, excluded.last_id), last_seen = now()",
                 {it.key().toUtf8(), QByteArray::number(it.value())}, error))
            return false;
    }
    return true;
}

bool DCollectorStore::islands(const QString& station, qint64 first, qint64 last, QList<DIsland>* found, QString* error)
{
    // A range held whole (a collector's restart: everything before the first id it sees) is one
    // count on the key's index, not a walk over every row.
    const DPostgresConnection::DParams range{station.toUtf8(), QByteArray::number(first), QByteArray::number(last)};
    const auto whole = m_connection.exec("SELECT count(*) FROM results WHERE station = $1 AND id BETWEEN $2 AND $3", range, error);
    if (whole && QByteArray(PQgetvalue(whole.get(), 0, 0)).toLongLong() == last - first + 1) {
        found->append({station, first, last, false});
        return true;
    }
    const auto result = m_connection.exec(
        "SELECT station, min(id), max(id), false FROM (SELECT station, id, id - row_number() OVER (PARTITION BY station ORDER BY id) AS run"
        " FROM results WHERE station = $1 AND id BETWEEN $2 AND $3) held GROUP BY station, run"
        " UNION ALL SELECT station, greatest(from_id, $2), least(to_id, $3), true FROM unrecoverable"
        " WHERE station = $1 AND to_id >= $2 AND from_id <= $3",
        range, error);
    if (!result)
        return false;
    for (int row = 0; row < PQntuples(result.get()); ++row)
        found->append({QString::fromUtf8(PQgetvalue(result.get(), row, 0)), QByteArray(PQgetvalue(result.get(), row, 1)).toLongLong(),
                       QByteArray(PQgetvalue(result.get(), row, 2)).toLongLong(), *PQgetvalue(result.get(), row, 3) == 't'});
    return true;
}

DCollectorStore::DStatement DCollectorStore::askGap(const QString& station, qint64 first, qint64 last)
{
    return {"INSERT INTO gaps (station, from_id, to_id, state) VALUES ($1, $2, $3, 'open') ON CONFLICT DO NOTHING",
            {station.toUtf8(), QByteArray::number(first), QByteArray::number(last)}};
}

// Filled when every id came, unrecoverable when the station said some are gone.
DCollectorStore::DStatement DCollectorStore::closeGap(const QString& station, qint64 first, qint64 last)
{
    return {"UPDATE gaps SET closed_at = now(), state = CASE WHEN EXISTS (SELECT 1 FROM unrecoverable u WHERE"
            " u.station = gaps.station AND u.from_id <= gaps.to_id AND u.to_id >= gaps.from_id) THEN 'unrecoverable'"
            " ELSE 'filled' END WHERE station = $1 AND from_id = $2 AND to_id = $3 AND state = 'open'",
            {station.toUtf8(), QByteArray::number(first), QByteArray::number(last)}};
}

DCollectorStore::DStatement DCollectorStore::recordLost(const QString& station, qint64 first, qint64 last)
{
    return {"INSERT INTO unrecoverable (station, from_id, to_id) VALUES ($1, $2, $3) ON CONFLICT DO NOTHING",
            {station.toUtf8(), QByteArray::number(first), QByteArray::number(last)}};
}

DCollectorStore::DStatement DCollectorStore::recordStatus(const QString& station, const QByteArray& status)
{
    return {"INSERT INTO stations (station, status, status_at) VALUES ($1, $2, now()) ON CONFLICT (station) DO UPDATE"
            " SET status = excluded.status, status_at = now()",
            {station.toUtf8(), status}};
}
