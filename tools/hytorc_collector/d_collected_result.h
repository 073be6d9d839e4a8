#ifndef D_COLLECTED_RESULT_H
#define D_COLLECTED_RESULT_H

#include "d_postgres_connection.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// One result as a station published it, checked before it goes near the database: a JSON
// object of at most c_maxPayload bytes with a whole-number id, an ISO 8601 receivedAt and a
// station name as hytorcd's; each other key the type of its column. Its values come out in the
// order of columns(), as text for bound parameters; a key it does not carry is NULL.
class DCollectedResult
{
public:
    static constexpr int c_maxPayload = 64 * 1024;

    // The results table's columns, named as the keys of `hytorc results`.
    static const QStringList& columns();
    // The column's SQL type.
    static QByteArray sqlType(const QString& key);

    // False with the reason when the message is not a result that can be stored as it is.
    bool parse(const QByteArray& topic, const QByteArray& payload, QString* reason);

    QString station;
    qint64 id = 0;
    QByteArray prefix;  // the topic without its last level: where the station takes replay requests
    DPostgresConnection::DParams values;

private:
    bool readIdentity(const QJsonObject& object, QString* reason);
    bool readValues(const QJsonObject& object, QString* reason);
};

#endif // D_COLLECTED_RESULT_H
