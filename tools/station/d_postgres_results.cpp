#include "d_postgres_results.h"

#include "d_postgres_connection.h"
#include "d_result_record.h"

#include <libpq-fe.h>

namespace {

// PostgreSQL's type oids (pg_type.h) of the columns read as numbers.
constexpr Oid c_int8 = 20;
constexpr Oid c_int2 = 21;
constexpr Oid c_int4 = 23;
constexpr Oid c_float8 = 701;
constexpr Oid c_numeric = 1700;

QByteArray column(const QString& key)
{
    if (key == QLatin1String("receivedAt"))
        return R"(to_char("receivedAt" AT TIME ZONE 'UTC', 'YYYY-MM-DD"T"HH24:MI:SS.MS"Z"'))";
    return '"' + key.toUtf8() + '"';
}

QVariant valueOf(pg_result* row, int index)
{
    if (PQgetisnull(row, 0, index))
        return QString();
    const char* text = PQgetvalue(row, 0, index);
    switch (PQftype(row, index)) {
    case c_int8:
    case c_int4:
    case c_int2:
        return QByteArray(text).toLongLong();
    case c_numeric:
    case c_float8:
        return QByteArray(text).toDouble();
    default:
        return QString::fromUtf8(text);
    }
}

} // namespace

DPostgresResults::DPostgresResults(DPostgresConnection* connection)
    : m_connection(connection)
{
}

bool DPostgresResults::forEachValues(const DQuery& query, const std::function<bool(const QVariantList&)>& each,
                                     QString* error)
{
    const QStringList& keys = DResultRecord::journalKeys();
    QByteArrayList columns;
    for (const QString& key : keys)
        columns << column(key);
    QByteArray sql = "SELECT " + columns.join(',') + " FROM results WHERE id > $1";
    DPostgresConnection::DParams params{QByteArray::number(query.sinceId)};
    const auto bound = [&](const QByteArray& condition, const QByteArray& value) {
        params.push_back(value);
        sql += " AND " + QByteArray(condition).replace('?', '$' + QByteArray::number(int(params.size())));
    };
    if (!query.station.isEmpty())
        bound("station = ?", query.station.toUtf8());
    if (query.fromMs > 0)
        bound(R"("receivedAt" >= to_timestamp(?::double precision / 1000))", QByteArray::number(query.fromMs));
    if (query.toMs > 0)
        bound(R"("receivedAt" <= to_timestamp(?::double precision / 1000))", QByteArray::number(query.toMs));
    if (query.progId > 0)
        bound(R"("progId" = ?)", QByteArray::number(query.progId));
    if (!query.status.isEmpty())
        bound("upper(status) = upper(?)", query.status.toUtf8());
    if (!query.identifier.isEmpty())
        bound("? IN (identifier, identifier2, identifier3, identifier4)", query.identifier.toUtf8());
    sql += " ORDER BY station, id";
    if (query.limit > 0)
        sql += " LIMIT " + QByteArray::number(query.limit);
    QVariantList values;
    return m_connection->forEachRow(sql, params, [&](pg_result* row) {
        values.clear();
        for (int i = 0; i < keys.size(); ++i)
            values << valueOf(row, i);
        return each(values);
    }, error);
}
