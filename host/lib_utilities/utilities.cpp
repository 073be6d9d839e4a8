#include "utilities.h"

#include <QDateTime>
#include <QStringList>

namespace {

constexpr int c_maxVersionParts = 4;
constexpr int c_bitsPerPart = 16;

QString variantToText(const QVariant& value);

QString listToText(const QVariantList& list)
{
    QStringList parts;
    for (const QVariant& item : list)
        parts << variantToText(item);
    return QLatin1Char('[') + parts.join(QLatin1String(", ")) + QLatin1Char(']');
}

QString variantToText(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap:
        return convVariantMapToString(value.toMap());
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return listToText(value.toList());
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toHex(' '));
    default:
        return value.isValid() ? value.toString() : QStringLiteral("(invalid)");
    }
}

} // namespace

quint64 versionFromString(const QString& text, bool* ok, QChar separator)
{
    const QStringList parts = text.trimmed().split(separator);
    bool good = !text.trimmed().isEmpty() && parts.size() <= c_maxVersionParts;
    quint64 packed = 0;
    for (int i = 0; good && i < parts.size(); ++i) {
        bool partOk = false;
        const uint part = parts.at(i).toUInt(&partOk);
        good = partOk && part <= 0xFFFF;
        packed |= quint64(part) << (c_bitsPerPart * (c_maxVersionParts - 1 - i));
    }
    if (ok)
        *ok = good;
    return good ? packed : 0;
}

QString convVariantMapToString(const QVariantMap& map)
{
    QStringList parts;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        parts << it.key() + QLatin1String(": ") + variantToText(it.value());
    return QLatin1Char('{') + parts.join(QLatin1String(", ")) + QLatin1Char('}');
}

QString getDate()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}
