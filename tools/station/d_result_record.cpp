#include "d_result_record.h"

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

// One JSON value as text, written by hand: an export of many rows spends its time here.
void appendJson(QByteArray* out, const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        *out += QByteArray::number(value.toLongLong());
        return;
    case QMetaType::Double:
        *out += QByteArray::number(value.toDouble(), 'g', 15);
        return;
    case QMetaType::Bool:
        *out += value.toBool() ? "true" : "false";
        return;
    default:
        break;
    }
    *out += '"';
    for (const char c : value.toString().toUtf8()) {
        if (c == '"' || c == '\\') {
            *out += '\\';
            *out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            *out += "\\u00";
            *out += QByteArray::number(static_cast<unsigned char>(c), 16).rightJustified(2, '0');
        } else {
            *out += c;
        }
    }
    *out += '"';
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
        line += '"' + key.toUtf8() + "\":";
        appendJson(&line, it.value());
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
