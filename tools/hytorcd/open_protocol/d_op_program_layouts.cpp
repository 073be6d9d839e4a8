#include "d_op_program_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

namespace {

// A program's target torque (its own unit) in N·m x 100; its angle in whole degrees.
std::optional<qint64> programTorque(const QVariantMap& program)
{
    const std::optional<double> torque = DOpValues::number(program, "torque");
    if (!torque)
        return std::nullopt;
    return DOpValues::newtonMetreHundredths(*torque, DOpValues::text(program, "unit"));
}

std::optional<qint64> programAngle(const QVariantMap& program)
{
    return DOpValues::degrees(DOpValues::number(program, "angle"));
}

std::optional<qint64> rotation(const QVariantMap& program)
{
    if (program.isEmpty())
        return std::nullopt;
    return DOpValues::text(program, "fastener").compare(QLatin1String("LH"), Qt::CaseInsensitive) == 0 ? 2 : 1;
}

// Rotation, batch size, limits and targets: the same in 0013 from `firstId` on and in 0015 revision 2.
void appendSettings(DOpFields* fields, int firstId, const QVariantMap& program, const DStationPart::DProgramSettings& settings)
{
    fields->number(firstId, rotation(program), 1)
        .number(firstId + 1, settings.batchSize, 2)
        .number(firstId + 2, DOpValues::newtonMetreHundredths(settings.torqueMin), 6)
        .number(firstId + 3, DOpValues::newtonMetreHundredths(settings.torqueMax), 6)
        .number(firstId + 4, programTorque(program), 6)
        .number(firstId + 5, DOpValues::degrees(settings.angleMin), 5)
        .number(firstId + 6, DOpValues::degrees(settings.angleMax), 5)
        .number(firstId + 7, programAngle(program), 5);
}

} // namespace

QByteArray DOpProgramLayouts::programIds(const QVariantList& programs)
{
    DOpFields fields;
    fields.number(programs.size(), 3);
    for (int id = 1; id <= programs.size(); ++id)
        fields.number(id, 3);
    return fields.data();
}

QByteArray DOpProgramLayouts::programData(const QVariantMap& program, const DStationPart::DProgramSettings& settings)
{
    DOpFields fields;
    fields.number(1, program.value(QStringLiteral("progId")).toInt(), 3).text(2, DOpValues::text(program, "name"), DOpValues::c_nameWidth);
    appendSettings(&fields, 3, program, settings);
    return fields.data();
}

// Revision 2's bytes 105-141 (Open Protocol R2.8.0, p.87) are numbered one short from angle
// max on; the widths its text gives (5 and 6 digits) end at byte 141 as its last line says.
QByteArray DOpProgramLayouts::programSelected(int revision, int progId, const QDateTime& when, const QVariantMap& program,
                                              const DStationPart::DProgramSettings& settings)
{
    DOpFields fields;
    if (revision == 1)
        return fields.number(progId, 3).text(DOpValues::timestamp(when), DOpValues::c_timestampWidth).data();
    fields.number(1, progId, 3)
        .text(2, DOpValues::text(program, "name"), DOpValues::c_nameWidth)
        .text(3, DOpValues::timestamp(when), DOpValues::c_timestampWidth);
    appendSettings(&fields, 4, program, settings);
    return fields.blank(12, 6).blank(13, 6).data();
}
