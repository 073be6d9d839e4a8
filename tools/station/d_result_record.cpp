#include "d_result_record.h"

#include <QHash>
#include <QSet>

#include <algorithm>

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
    const QByteArray text = value.toString().toUtf8();
    out->append('"');
    const bool plain = std::all_of(text.cbegin(), text.cend(), [](char c) {
        return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= 0x20;
    });
    if (plain) {
        out->append(text);
    } else {
        for (const char c : text) {
            if (c == '"' || c == '\\') {
                out->append('\\').append(c);
            } else if (static_cast<unsigned char>(c) < 0x20) {
                out->append("\\u00").append(QByteArray::number(static_cast<unsigned char>(c), 16).rightJustified(2, '0'));
            } else {
                out->append(c);
            }
        }
    }
    out->append('"');
}

// "key": as bytes, made once per key: an export writes the same few keys on every line.
const QByteArray& keyPrefix(const QString& key)
{
    thread_local QHash<QString, QByteArray> prefixes;
    auto it = prefixes.find(key);
    if (it == prefixes.end())
        it = prefixes.insert(key, '"' + key.toUtf8() + "\":");
    return it.value();
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
    static const QStringList keys = QStringList{"id", "receivedAt", "station", "toolSerial"} + eventKeys() + partKeys();
    return keys;
}

QStringList DResultRecord::identifierKeys()
{
    QStringList keys;
    for (const QString& key : journalKeys()) {
        if (key.startsWith(QLatin1String("identifier")))
            keys << key;
    }
    return keys;
}

const QStringList& DResultRecord::partKeys()
{
    static const QStringList keys{"identifier", "identifier2", "identifier3", "identifier4", "batchSize",
                                  "batchCounter", "batchStatus", "torqueMin", "torqueMax", "angleMin",
                                  "angleMax", "torqueStatus", "angleStatus"};
    return keys;
}

std::optional<double> DResultRecord::newtonMetresPer(const QString& unit)
{
    QString word = unit.trimmed().toUpper();
    word.remove(QLatin1Char('.'));
    if (word == QLatin1String("NM"))
        return 1.0;
    if (word == QLatin1String("FTLB"))
        return c_newtonMetresPerFootPound;
    return std::nullopt;
}

std::optional<double> DResultRecord::newtonMetres(const QVariantMap& record)
{
    const std::optional<double> factor = newtonMetresPer(record.value(QStringLiteral("torqueUnit")).toString());
    if (!factor)
        return std::nullopt;
    return record.value(QStringLiteral("convertedTorque")).toDouble() / 100.0 * *factor;
}

bool DResultRecord::isNumeric(const QString& key)
{
    static const QSet<QString> numeric{"duration", "convertedTorque", "progId", "eventCountNo"};
    return numeric.contains(key);
}

QVariantList DResultRecord::valuesOf(const QVariantMap& values, const QStringList& keys)
{
    QVariantList list;
    list.reserve(keys.size());
    for (const QString& key : keys)
        list << values.value(key);
    return list;
}

QByteArray DResultRecord::jsonLine(const QVariantMap& values, const QStringList& keys)
{
    return jsonLine(valuesOf(values, keys), keys);
}

QByteArray DResultRecord::jsonLine(const QVariantList& values, const QStringList& keys)
{
    QByteArray line;
    line.reserve(512);
    line.append('{');
    for (int i = 0; i < keys.size() && i < values.size(); ++i) {
        if (!values.at(i).isValid())
            continue;
        if (line.size() > 1)
            line.append(',');
        line.append(keyPrefix(keys.at(i)));
        appendJson(&line, values.at(i));
    }
    return line.append('}');
}

QByteArray DResultRecord::csvLine(const QVariantMap& values, const QStringList& keys)
{
    return csvLine(valuesOf(values, keys));
}

QByteArray DResultRecord::csvLine(const QVariantList& values)
{
    QStringList fields;
    for (const QVariant& value : values)
        fields << value.toString();
    return csvJoin(fields);
}

QByteArray DResultRecord::csvHeader(const QStringList& keys) { return csvJoin(keys); }

QByteArray DResultRecord::exportLine(const QVariantList& row, bool csv)
{
    return (csv ? csvLine(row) : jsonLine(row, journalKeys())) + '\n';
}

