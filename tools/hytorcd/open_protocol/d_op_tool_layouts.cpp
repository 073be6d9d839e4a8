#include "d_op_tool_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

QByteArray DOpToolLayouts::toolData(const QVariantMap& toolInfo, const DOpSettings& settings)
{
    return DOpFields()
        .text(1, DOpValues::text(toolInfo, "serial"), 14)
        .number(2, DOpValues::text(toolInfo, "cycle_count").toLongLong(), 10)
        .text(3, DOpValues::timestamp(DOpValues::text(toolInfo, "cal_date"), QString()), DOpValues::c_timestampWidth)
        .text(4, settings.station, 10)
        .data();
}
