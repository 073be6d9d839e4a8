#include "d_op_values.h"

#include "d_result_record.h"

#include <QStringList>

#include <cmath>

namespace {

// Below what a double's error makes of a value that is exact in hundredths (1.15 x 100 = 114.999...).
constexpr double c_truncationSlack = 1e-6;
const QString c_timestampFormat = QStringLiteral("yyyy-MM-dd:HH:mm:ss");
const QStringList c_dateFormats{QStringLiteral("yyyy-MM-dd"), QStringLiteral("yyyy/MM/dd"), QStringLiteral("dd/MM/yyyy"),
                                QStringLiteral("dd.MM.yyyy")};

qint64 truncated(double value) { return qint64(std::trunc(value + (value < 0 ? -c_truncationSlack : c_truncationSlack))); }

} // namespace

QString DOpValues::text(const QVariantMap& map, const char* key)
{
    return map.value(QLatin1String(key)).toString().trimmed();
}

std::optional<double> DOpValues::number(const QVariantMap& map, const char* key)
{
    bool ok = false;
    const double value = text(map, key).toDouble(&ok);
    return ok ? std::optional<double>(value) : std::nullopt;
}

qint64 DOpValues::newtonMetreHundredths(double torque, const QString& unit)
{
    return truncated(torque * DResultRecord::newtonMetresPer(unit).value_or(1.0) * 100.0);
}

std::optional<qint64> DOpValues::newtonMetreHundredths(std::optional<double> newtonMetres)
{
    return newtonMetres ? std::optional<qint64>(truncated(*newtonMetres * 100.0)) : std::nullopt;
}

std::optional<qint64> DOpValues::degrees(std::optional<double> angle)
{
    return angle ? std::optional<qint64>(truncated(*angle)) : std::nullopt;
}

std::optional<qint64> DOpValues::status(const QString& word)
{
    static const QStringList words{QStringLiteral("low"), QStringLiteral("ok"), QStringLiteral("high")};
    const int index = words.indexOf(word.toLower());
    return index < 0 ? std::nullopt : std::optional<qint64>(index);
}

QString DOpValues::timestamp(const QString& date, const QString& time)
{
    for (const QString& format : c_dateFormats) {
        const QDate day = QDate::fromString(date, format);
        if (day.isValid()) {
            const QTime clock = QTime::fromString(time, QStringLiteral("HH:mm:ss"));
            return timestamp(QDateTime(day, clock.isValid() ? clock : QTime(0, 0)));
        }
    }
    return QString();
}

QString DOpValues::timestamp(const QDateTime& when)
{
    return when.isValid() ? when.toLocalTime().toString(c_timestampFormat) : QString();
}
