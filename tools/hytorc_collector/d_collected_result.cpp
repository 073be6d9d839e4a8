#include "d_collected_result.h"

#include "d_result_record.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cmath>

namespace {

// Among the part's keys (identifiers, batch, limits and their verdicts), those that are numbers.
const QStringList c_decimalKeys{"torqueMin", "torqueMax", "angleMin", "angleMax"};
const QStringList c_countKeys{"batchSize", "batchCounter", "batchStatus"};
constexpr double c_maxWhole = 9007199254740992.0;  // 2^53: beyond it a JSON number is no exact whole number

// Text as a bound parameter; false when PostgreSQL's text cannot hold it.
bool text(const QJsonValue& value, QByteArray* out)
{
    if (value.isString())
        *out = value.toString().toUtf8();
    else if (value.isDouble())
        *out = QByteArray::number(value.toDouble(), 'g', 15);
    else
        return false;
    if (out->isNull())
        *out = QByteArray("", 0);  // empty text, not NULL
    return !out->contains('\0');
}

bool isWhole(const QString& key)
{
    return key == QLatin1String("id") || DResultRecord::isNumeric(key) || c_countKeys.contains(key);
}

enum EnType { CeText, CeWhole, CeDecimal, CeTime };

struct DColumn {
    QString key;
    EnType type;
};

// The columns with their types, worked out once: a collector parses thousands of results a second.
const QList<DColumn>& typedColumns()
{
    static const QList<DColumn> all = [] {
        QList<DColumn> list;
        for (const QString& key : DCollectedResult::columns()) {
            const QByteArray type = DCollectedResult::sqlType(key);
            list.append({key, type == "text" ? CeText : type == "bigint" ? CeWhole : type == "numeric" ? CeDecimal : CeTime});
        }
        return list;
    }();
    return all;
}

// The value as its column's bound parameter (null: SQL's NULL; a number's empty text is "unknown");
// false when the column's type cannot hold it.
bool convert(const DColumn& column, const QJsonValue& value, QByteArray* out)
{
    if (value.isUndefined() || value.isNull())
        return true;
    if (column.type == CeText || column.type == CeTime)
        return text(value, out);
    if (value.isString() && value.toString().isEmpty())
        return true;
    const double number = value.toDouble();
    if (!value.isDouble() || !std::isfinite(number))
        return false;
    if (column.type == CeDecimal)
        return *out = QByteArray::number(number, 'g', 15), true;
    if (number != std::floor(number) || std::fabs(number) > c_maxWhole)
        return false;
    return *out = QByteArray::number(qint64(number)), true;
}

} // namespace

const QStringList& DCollectedResult::columns()
{
    return DResultRecord::journalKeys();
}

QByteArray DCollectedResult::sqlType(const QString& key)
{
    if (key == QLatin1String("receivedAt"))
        return "timestamptz";
    if (c_decimalKeys.contains(key))
        return "numeric";
    return isWhole(key) ? "bigint" : "text";
}

bool DCollectedResult::parse(const QByteArray& topic, const QByteArray& payload, QString* reason)
{
    if (payload.size() > c_maxPayload)
        return *reason = QStringLiteral("a payload of %1 bytes (a result is under %2)").arg(payload.size()).arg(c_maxPayload), false;
    QJsonParseError error{};
    const QJsonObject object = QJsonDocument::fromJson(payload, &error).object();
    if (error.error != QJsonParseError::NoError || !payload.trimmed().startsWith('{'))
        return *reason = QStringLiteral("not a JSON object"), false;
    prefix = topic.left(topic.lastIndexOf('/'));
    return readIdentity(object, reason) && readValues(object, reason);
}

// The keys that make a row a station's result: its id, its station, when it was received.
bool DCollectedResult::readIdentity(const QJsonObject& object, QString* reason)
{
    for (const char* key : {"id", "receivedAt", "station"}) {
        if (!object.contains(QLatin1String(key)))
            return *reason = QStringLiteral("no \"%1\"").arg(QLatin1String(key)), false;
    }
    const double number = object.value(QStringLiteral("id")).toDouble(-1);
    if (!object.value(QStringLiteral("id")).isDouble() || number < 1 || number > c_maxWhole || number != std::floor(number))
        return *reason = QStringLiteral("\"id\" is not a whole number from 1"), false;
    id = qint64(number);
    station = object.value(QStringLiteral("station")).toString();
    static const QRegularExpression name(QStringLiteral("^[\\w .-]{1,25}$"), QRegularExpression::UseUnicodePropertiesOption);
    if (!name.match(station).hasMatch())
        return *reason = QStringLiteral("\"station\" is not a station name (1 to 25 letters, digits, spaces, . _ -)"), false;
    const QString receivedAt = object.value(QStringLiteral("receivedAt")).toString();
    if (!QDateTime::fromString(receivedAt, Qt::ISODateWithMs).isValid() || !receivedAt.contains(QLatin1Char('T')))
        return *reason = QStringLiteral("\"receivedAt\" is not an ISO 8601 time"), false;
    return true;
}

bool DCollectedResult::readValues(const QJsonObject& object, QString* reason)
{
    values.clear();
    values.reserve(size_t(columns().size()));
    for (const DColumn& column : typedColumns()) {
        QByteArray out;
        if (!convert(column, object.value(column.key), &out))
            return *reason = QStringLiteral("\"%1\" is not %2").arg(column.key, column.type == CeText ? "text" : "a number"), false;
        values.push_back(out);
    }
    return true;
}
