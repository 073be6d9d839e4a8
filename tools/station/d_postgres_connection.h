#ifndef D_POSTGRES_CONNECTION_H
#define D_POSTGRES_CONNECTION_H

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

struct pg_conn;
struct pg_result;

// One libpq connection to the plant's PostgreSQL. Every value goes as a bound parameter, never
// into the statement's text. The password comes from a file (or libpq's PGPASSFILE), never from
// the connection string, which other users of the machine can read off the command line.
class DPostgresConnection
{
public:
    using DResult = std::unique_ptr<pg_result, void (*)(pg_result*)>;
    // A statement's parameters as text; a null QByteArray is SQL's NULL.
    using DParams = std::vector<QByteArray>;

    DPostgresConnection() = default;
    ~DPostgresConnection();
    DPostgresConnection(const DPostgresConnection&) = delete;
    DPostgresConnection& operator=(const DPostgresConnection&) = delete;

    // False when the connection string names a password: one line saying where it goes instead.
    static bool checkConnInfo(const QString& connInfo, QString* error);
    // Connects (a 5 s limit unless connect_timeout says otherwise); false with libpq's reason.
    bool open(const QString& connInfo, const QString& password, QString* error);
    void close();
    bool isOpen() const;

    // Runs one statement; null with the server's reason when it failed.
    DResult exec(const QByteArray& sql, const DParams& params, QString* error);
    // The same through a statement prepared once per connection under `name`: the server parses
    // and plans a statement of many rows once, not for each batch.
    DResult execPrepared(const QByteArray& name, const QByteArray& sql, const DParams& params, QString* error);
    // Runs a query row by row (libpq's single-row mode): `each` gets the row's result, its row 0.
    bool forEachRow(const QByteArray& sql, const DParams& params, const std::function<bool(pg_result*)>& each,
                    QString* error);
    // The server's reason of the last failure, on one line.
    QString lastError() const;

private:
    DResult check(DResult result, QString* error) const;

    pg_conn* m_conn = nullptr;
    QList<QByteArray> m_prepared;
};

#endif // D_POSTGRES_CONNECTION_H
