#include "d_result_record.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QSet>

namespace {

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1String("\""), QLatin1String("\"\"")) + QLatin1Char('"');
}

QByteArray csvJoin(const QStringList& fields)
{
    QStringList quoted;
    for (const QString& field : fields)
        quoted << csvField(field);
    return quoted.join(QLatin1Char(',')).toUtf8();
}

// One JSON value as text: Qt writes values only inside a document.
QByteArray jsonValue(const QVariant& value)
{
    const QByteArray array = QJsonDocument(QJsonArray{QJsonValue::fromVariant(value)}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

} // namespace

const QStringList& DResultRecord::eventKeys()
{
    static const QStringList keys{"date",      "time",       "duration",  "jobId",  "profileName",
                                  "mode",      "snugTorqueAngle", "torqueUnit", "direction", "status",
                                  "convertedTorque", "angleUnit", "progId", "eventCountNo"};
    return keys;
}

const QStringList& DResultRecord::journalKeys()
{
    static const QStringList keys = QStringList{"id", "receivedAt", "station", "toolSerial"} + eventKeys();
    return keys;
}

bool DResultRecord::isNumeric(const QString& key)
{
    static const QSet<QString> numeric{"duration", "convertedTorque", "progId", "eventCountNo"};
    return numeric.contains(key);
}

QByteArray DResultRecord::jsonLine(const QVariantMap& values, const QStringList& keys)
{
    QByteArray line("{");
    for (const QString& key : keys) {
        const auto it = values.constFind(key);
        if (it == values.constEnd())
            continue;
        if (line.size() > 1)
            line += ',';
        line += '"' + key.toUtf8() + "\":" + jsonValue(it.value());
    }
    return line + '}';
}

QByteArray DResultRecord::csvLine(const QVariantMap& values, const QStringList& keys)
{
    QStringList fields;
    for (const QString& key : keys)
        fields << values.value(key).toString();
    return csvJoin(fields);
}

QByteArray DResultRecord::csvHeader(const QStringList& keys) { return csvJoin(keys); }
