#include "d_op_layouts.h"

#include "d_op_fields.h"

#include <cmath>

namespace {

constexpr double c_newtonMetresPerFootPound = 1.3558179483;
constexpr int c_nameWidth = 25;
constexpr int c_timestampWidth = 19;
const QString c_timestampFormat = QStringLiteral("yyyy-MM-dd:HH:mm:ss");
const QStringList c_dateFormats{QStringLiteral("yyyy-MM-dd"), QStringLiteral("yyyy/MM/dd"), QStringLiteral("dd/MM/yyyy"),
                                QStringLiteral("dd.MM.yyyy")};

QString value(const QVariantMap& map, const char* key) { return map.value(QLatin1String(key)).toString().trimmed(); }

// A program's target torque (its own unit) in N·m x 100; its angle in whole degrees.
qint64 programTorque(const QVariantMap& program)
{
    return DOpLayouts::newtonMetreHundredths(value(program, "torque").toDouble(), value(program, "unit"));
}

qint64 programAngle(const QVariantMap& program) { return std::llround(value(program, "angle").toDouble()); }

} // namespace

DOpLayouts::DOpLayouts(const DSettings& settings)
    : m_settings(settings)
{
}

QByteArray DOpLayouts::communicationStart() const
{
    return DOpFields()
        .number(1, m_settings.cell, 4)
        .number(2, m_settings.channel, 2)
        .text(3, m_settings.station, c_nameWidth)
        .data();
}

QByteArray DOpLayouts::programIds(const QVariantList& programs)
{
    DOpFields fields;
    fields.number(programs.size(), 3);
    for (int id = 1; id <= programs.size(); ++id)
        fields.number(id, 3);
    return fields.data();
}

QByteArray DOpLayouts::programData(const QVariantMap& program)
{
    const bool leftHand = value(program, "fastener").compare(QLatin1String("LH"), Qt::CaseInsensitive) == 0;
    return DOpFields()
        .number(1, program.value(QStringLiteral("progId")).toInt(), 3)
        .text(2, value(program, "name"), c_nameWidth)
        .number(3, leftHand ? 2 : 1, 1)
        .number(4, 0, 2)
        .number(5, 0, 6)
        .number(6, 0, 6)
        .number(7, programTorque(program), 6)
        .number(8, 0, 5)
        .number(9, 0, 5)
        .number(10, programAngle(program), 5)
        .data();
}

QByteArray DOpLayouts::programSelected(int progId, const QDateTime& when)
{
    return DOpFields().number(1, progId, 3).text(2, timestamp(when), c_timestampWidth).data();
}

QByteArray DOpLayouts::toolData(const QVariantMap& toolInfo) const
{
    return DOpFields()
        .text(1, value(toolInfo, "serial"), 14)
        .number(2, value(toolInfo, "cycle_count").toLongLong(), 10)
        .text(3, timestamp(value(toolInfo, "cal_date"), QString()), c_timestampWidth)
        .text(4, m_settings.station, 10)
        .data();
}

QByteArray DOpLayouts::lastResult(const QVariantMap& row, const QVariantMap& program, const QDateTime& lastChange) const
{
    const bool good = isGood(row);
    return DOpFields()
        .number(1, m_settings.cell, 4)
        .number(2, m_settings.channel, 2)
        .text(3, value(row, "station"), c_nameWidth)
        .text(4, value(row, "jobId"), c_nameWidth)
        .number(5, 0, 2)
        .number(6, row.value(QStringLiteral("progId")).toInt(), 3)
        .number(7, 0, 4)
        .number(8, 0, 4)
        .number(9, good ? 1 : 0, 1)
        .number(10, good ? 1 : 0, 1)
        .number(11, 0, 1)
        .number(12, 0, 6)
        .number(13, 0, 6)
        .number(14, program.isEmpty() ? 0 : programTorque(program), 6)
        .number(15, rowTorque(row), 6)
        .number(16, 0, 5)
        .number(17, 0, 5)
        .number(18, program.isEmpty() ? 0 : programAngle(program), 5)
        .number(19, 0, 5)
        .text(20, timestamp(value(row, "date"), value(row, "time")), c_timestampWidth)
        .text(21, timestamp(lastChange), c_timestampWidth)
        .number(22, 0, 1)
        .number(23, row.value(QStringLiteral("id")).toLongLong(), 10)
        .data();
}

QByteArray DOpLayouts::oldResult(const QVariantMap& row) const
{
    const bool good = isGood(row);
    return DOpFields()
        .number(1, row.value(QStringLiteral("id")).toLongLong(), 10)
        .text(2, value(row, "jobId"), c_nameWidth)
        .number(3, row.value(QStringLiteral("progId")).toInt(), 3)
        .number(4, 0, 4)
        .number(5, good ? 1 : 0, 1)
        .number(6, good ? 1 : 0, 1)
        .number(7, 0, 1)
        .number(8, rowTorque(row), 6)
        .number(9, 0, 5)
        .text(10, timestamp(value(row, "date"), value(row, "time")), c_timestampWidth)
        .number(11, 0, 1)
        .data();
}

qint64 DOpLayouts::newtonMetreHundredths(double torque, const QString& unit)
{
    QString word = unit.toUpper();
    word.remove(QLatin1Char('.'));
    const double factor = word == QLatin1String("FTLB") ? c_newtonMetresPerFootPound : 1.0;
    return std::llround(torque * factor * 100.0);
}

bool DOpLayouts::isGood(const QVariantMap& row) const
{
    return m_settings.goodStatus.contains(value(row, "status"), Qt::CaseInsensitive);
}

// The journal keeps the tool's torque x 100 in the tool's unit.
qint64 DOpLayouts::rowTorque(const QVariantMap& row)
{
    return newtonMetreHundredths(row.value(QStringLiteral("convertedTorque")).toDouble() / 100.0, value(row, "torqueUnit"));
}

// The tool's own date (and time), local like the tool's clock; blanks when it is no date we know.
QString DOpLayouts::timestamp(const QString& date, const QString& time)
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

QString DOpLayouts::timestamp(const QDateTime& when)
{
    return when.isValid() ? when.toLocalTime().toString(c_timestampFormat) : QString();
}
