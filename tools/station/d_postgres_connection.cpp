#include "d_postgres_connection.h"

#include <libpq-fe.h>

namespace {

const char* const c_connectTimeoutSeconds = "5";

std::vector<const char*> pointers(const DPostgresConnection::DParams& params)
{
    std::vector<const char*> values;
    values.reserve(params.size());
    for (const QByteArray& param : params)
        values.push_back(param.isNull() ? nullptr : param.constData());
    return values;
}

} // namespace

DPostgresConnection::~DPostgresConnection() { close(); }

bool DPostgresConnection::checkConnInfo(const QString& connInfo, QString* error)
{
    char* message = nullptr;
    PQconninfoOption* options = PQconninfoParse(connInfo.toUtf8().constData(), &message);
    if (!options) {
        *error = QStringLiteral("--postgres: \"%1\" is no connection string: %2")
                     .arg(connInfo, QString::fromUtf8(message).trimmed());
        PQfreemem(message);
        return false;
    }
    bool password = false;
    for (PQconninfoOption* option = options; option->keyword; ++option)
        password = password || (qstrcmp(option->keyword, "password") == 0 && option->val && *option->val);
    PQconninfoFree(options);
    if (password)
        *error = QStringLiteral("--postgres: the connection string holds a password, which every user of this machine can "
                                "read; put it in a file (--postgres-password-file) or in libpq's PGPASSFILE");
    return !password;
}

bool DPostgresConnection::open(const QString& connInfo, const QString& password, QString* error)
{
    close();
    const QByteArray info = connInfo.toUtf8();
    const QByteArray secret = password.toUtf8();
    // Later keywords win: the connection string's own connect_timeout overrides ours.
    const char* keywords[] = {"connect_timeout", "application_name", "dbname", password.isEmpty() ? nullptr : "password", nullptr};
    const char* values[] = {c_connectTimeoutSeconds, "hytorc", info.constData(), secret.constData(), nullptr};
    m_conn = PQconnectdbParams(keywords, values, 1);
    if (PQstatus(m_conn) == CONNECTION_OK)
        return true;
    *error = lastError();
    close();
    return false;
}

void DPostgresConnection::close()
{
    if (m_conn)
        PQfinish(m_conn);
    m_conn = nullptr;
    m_prepared.clear();
}

bool DPostgresConnection::isOpen() const { return m_conn && PQstatus(m_conn) == CONNECTION_OK; }

DPostgresConnection::DResult DPostgresConnection::exec(const QByteArray& sql, const DParams& params, QString* error)
{
    if (!m_conn) {
        *error = QStringLiteral("not connected");
        return DResult(nullptr, PQclear);
    }
    const std::vector<const char*> values = pointers(params);
    return check(DResult(PQexecParams(m_conn, sql.constData(), int(values.size()), nullptr, values.data(), nullptr, nullptr, 0),
                         PQclear), error);
}

DPostgresConnection::DResult DPostgresConnection::execPrepared(const QByteArray& name, const QByteArray& sql,
                                                               const DParams& params, QString* error)
{
    if (!m_conn) {
        *error = QStringLiteral("not connected");
        return DResult(nullptr, PQclear);
    }
    if (!m_prepared.contains(name)) {
        if (!check(DResult(PQprepare(m_conn, name.constData(), sql.constData(), int(params.size()), nullptr), PQclear), error))
            return DResult(nullptr, PQclear);
        m_prepared << name;
    }
    const std::vector<const char*> values = pointers(params);
    return check(DResult(PQexecPrepared(m_conn, name.constData(), int(values.size()), values.data(), nullptr, nullptr, 0), PQclear),
                 error);
}

DPostgresConnection::DResult DPostgresConnection::check(DResult result, QString* error) const
{
    const ExecStatusType status = PQresultStatus(result.get());
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK)
        return result;
    *error = result ? QString::fromUtf8(PQresultErrorMessage(result.get())).simplified() : lastError();
    return DResult(nullptr, PQclear);
}

bool DPostgresConnection::forEachRow(const QByteArray& sql, const DParams& params,
                                     const std::function<bool(pg_result*)>& each, QString* error)
{
    const std::vector<const char*> values = pointers(params);
    if (!m_conn || !PQsendQueryParams(m_conn, sql.constData(), int(values.size()), nullptr, values.data(), nullptr, nullptr, 0)
        || !PQsetSingleRowMode(m_conn)) {
        *error = m_conn ? lastError() : QStringLiteral("not connected");
        return false;
    }
    bool wanted = true;
    bool ok = true;
    while (pg_result* result = PQgetResult(m_conn)) {
        const ExecStatusType status = PQresultStatus(result);
        if (status == PGRES_SINGLE_TUPLE && wanted)
            wanted = each(result);
        else if (status != PGRES_SINGLE_TUPLE && status != PGRES_TUPLES_OK && ok)
            ok = false, *error = QString::fromUtf8(PQresultErrorMessage(result)).simplified();
        PQclear(result);
        // The rest still has to be read off the connection; cancelling would cost a round trip of its own.
    }
    return ok;
}

QString DPostgresConnection::lastError() const
{
    return m_conn ? QString::fromUtf8(PQerrorMessage(m_conn)).simplified() : QStringLiteral("not connected");
}
