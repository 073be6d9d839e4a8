#include "d_op_result_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

namespace {

constexpr int c_identifierWidth = 25;
constexpr int c_serialWidth = 14;
constexpr int c_unitNewtonMetre = 1;   // we send every torque in N·m
constexpr int c_typeTightening = 1;

std::optional<qint64> whole(std::optional<double> value)
{
    return value ? std::optional<qint64>(qint64(*value)) : std::nullopt;
}

// The journal keeps the tool's torque x 100 in the tool's unit.
std::optional<qint64> rowTorque(const QVariantMap& row)
{
    const std::optional<double> torque = DOpValues::number(row, "convertedTorque");
    if (!torque)
        return std::nullopt;
    return DOpValues::newtonMetreHundredths(*torque / 100.0, DOpValues::text(row, "torqueUnit"));
}

} // namespace

DOpResultLayouts::DOpResultLayouts(const DOpSettings& settings, const QVariantMap& row, const QVariantMap& program,
                                   const QDateTime& lastChange)
    : m_settings(settings)
    , m_row(row)
    , m_id(row.value(QStringLiteral("id")).toLongLong())
    , m_progId(row.value(QStringLiteral("progId")).toInt())
    , m_good(settings.goodStatus.contains(DOpValues::text(row, "status"), Qt::CaseInsensitive))
    , m_torque(rowTorque(row))
    , m_torqueMin(DOpValues::newtonMetreHundredths(DOpValues::number(row, "torqueMin")))
    , m_torqueMax(DOpValues::newtonMetreHundredths(DOpValues::number(row, "torqueMax")))
    , m_angleMin(DOpValues::degrees(DOpValues::number(row, "angleMin")))
    , m_angleMax(DOpValues::degrees(DOpValues::number(row, "angleMax")))
    , m_torqueStatus(DOpValues::status(DOpValues::text(row, "torqueStatus")))
    , m_angleStatus(DOpValues::status(DOpValues::text(row, "angleStatus")))
    , m_batchSize(whole(DOpValues::number(row, "batchSize")))
    , m_batchCounter(whole(DOpValues::number(row, "batchCounter")))
    , m_batchStatus(whole(DOpValues::number(row, "batchStatus")).value_or(2))
    , m_programName(DOpValues::text(program, "name"))
    , m_timestamp(DOpValues::timestamp(DOpValues::text(row, "date"), DOpValues::text(row, "time")))
    , m_lastChange(DOpValues::timestamp(lastChange))
{
    if (const std::optional<double> torque = DOpValues::number(program, "torque"))
        m_target = DOpValues::newtonMetreHundredths(*torque, DOpValues::text(program, "unit"));
    m_angleTarget = DOpValues::degrees(DOpValues::number(program, "angle"));
    for (const char* key : {"identifier", "identifier2", "identifier3", "identifier4"})
        m_identifiers << DOpValues::text(row, key);
}

QByteArray DOpResultLayouts::lastResult(int revision) const
{
    if (revision == 1)
        return lastResultRevision1();
    DOpFields fields;
    fields.number(1, m_settings.cell, 4)
        .number(2, m_settings.channel, 2)
        .text(3, DOpValues::text(m_row, "station"), DOpValues::c_nameWidth)
        .text(4, m_identifiers.at(0), c_identifierWidth)
        .blank(5, 4)
        .number(6, m_progId, 3)
        .blank(7, 2)
        .blank(8, 5)
        .number(9, m_batchSize, 4)
        .number(10, m_batchCounter, 4);
    appendRevision2Statuses(&fields, 11);
    fields.number(21, m_torqueMin, 6)
        .number(22, m_torqueMax, 6)
        .number(23, m_target, 6)
        .number(24, m_torque, 6)
        .number(25, m_angleMin, 5)
        .number(26, m_angleMax, 5)
        .number(27, m_angleTarget, 5);
    appendBlanks(&fields, 28, {5, 5, 5, 5, 3, 3, 3, 6, 6, 6, 6, 6, 6});
    fields.number(41, m_id, 10)
        .blank(42, 5)
        .blank(43, 5)
        .text(44, DOpValues::text(m_row, "toolSerial"), c_serialWidth)
        .text(45, m_timestamp, DOpValues::c_timestampWidth)
        .text(46, m_lastChange, DOpValues::c_timestampWidth);
    if (revision >= 3) {
        fields.text(47, m_programName, DOpValues::c_nameWidth);
        appendUnitAndType(&fields, 48);
    }
    if (revision >= 4)
        appendIdentifiers(&fields, 50);
    if (revision >= 5)
        fields.blank(53, 4);
    if (revision >= 6)
        appendBlanks(&fields, 54, {6, 10});
    if (revision >= 7)
        appendBlanks(&fields, 56, {7, 7});
    return fields.data();
}

QByteArray DOpResultLayouts::oldResult(int revision) const
{
    if (revision == 1)
        return oldResultRevision1();
    DOpFields fields;
    fields.number(1, m_id, 10)
        .text(2, m_identifiers.at(0), c_identifierWidth)
        .blank(3, 4)
        .number(4, m_progId, 3)
        .blank(5, 2)
        .blank(6, 5)
        .number(7, m_batchSize, 4)
        .number(8, m_batchCounter, 4);
    appendRevision2Statuses(&fields, 9);
    fields.number(19, m_torque, 6);
    appendBlanks(&fields, 20, {5, 5, 3, 6, 6, 5, 5});
    fields.text(27, DOpValues::text(m_row, "toolSerial"), c_serialWidth).text(28, m_timestamp, DOpValues::c_timestampWidth);
    if (revision >= 3)
        appendUnitAndType(&fields, 29);
    if (revision >= 4)
        appendIdentifiers(&fields, 31);
    if (revision >= 5)
        fields.blank(34, 4);
    if (revision >= 6)
        appendBlanks(&fields, 35, {6, 10});
    if (revision >= 7)
        fields.blank(37, 10).text(38, m_settings.station, DOpValues::c_nameWidth);
    return fields.data();
}

QByteArray DOpResultLayouts::lastResultRevision1() const
{
    return DOpFields()
        .number(1, m_settings.cell, 4)
        .number(2, m_settings.channel, 2)
        .text(3, DOpValues::text(m_row, "station"), DOpValues::c_nameWidth)
        .text(4, m_identifiers.at(0), c_identifierWidth)
        .blank(5, 2)
        .number(6, m_progId, 3)
        .number(7, m_batchSize, 4)
        .number(8, m_batchCounter, 4)
        .number(9, m_good ? 1 : 0, 1)
        .number(10, m_torqueStatus, 1)
        .number(11, m_angleStatus, 1)
        .number(12, m_torqueMin, 6)
        .number(13, m_torqueMax, 6)
        .number(14, m_target, 6)
        .number(15, m_torque, 6)
        .number(16, m_angleMin, 5)
        .number(17, m_angleMax, 5)
        .number(18, m_angleTarget, 5)
        .blank(19, 5)
        .text(20, m_timestamp, DOpValues::c_timestampWidth)
        .text(21, m_lastChange, DOpValues::c_timestampWidth)
        .number(22, m_batchStatus, 1)
        .number(23, m_id, 10)
        .data();
}

QByteArray DOpResultLayouts::oldResultRevision1() const
{
    return DOpFields()
        .number(1, m_id, 10)
        .text(2, m_identifiers.at(0), c_identifierWidth)
        .number(3, m_progId, 3)
        .number(4, m_batchCounter, 4)
        .number(5, m_good ? 1 : 0, 1)
        .number(6, m_torqueStatus, 1)
        .number(7, m_angleStatus, 1)
        .number(8, m_torque, 6)
        .blank(9, 5)
        .text(10, m_timestamp, DOpValues::c_timestampWidth)
        .number(11, m_batchStatus, 1)
        .data();
}

// Tightening, batch, torque and angle statuses; the other five statuses and the error bits
// have no source.
void DOpResultLayouts::appendRevision2Statuses(DOpFields* fields, int firstId) const
{
    fields->number(firstId, m_good ? 1 : 0, 1)
        .number(firstId + 1, m_batchStatus, 1)
        .number(firstId + 2, m_torqueStatus, 1)
        .number(firstId + 3, m_angleStatus, 1);
    appendBlanks(fields, firstId + 4, {1, 1, 1, 1, 1, 10});
}

void DOpResultLayouts::appendBlanks(DOpFields* fields, int firstId, const QList<int>& widths)
{
    for (int i = 0; i < widths.size(); ++i)
        fields->blank(firstId + i, widths.at(i));
}

void DOpResultLayouts::appendUnitAndType(DOpFields* fields, int firstId) const
{
    fields->number(firstId, c_unitNewtonMetre, 1).number(firstId + 1, c_typeTightening, 2);
}

void DOpResultLayouts::appendIdentifiers(DOpFields* fields, int firstId) const
{
    for (int part = 1; part < 4; ++part)
        fields->text(firstId + part - 1, m_identifiers.at(part), c_identifierWidth);
}
