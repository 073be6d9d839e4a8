#include "d_op_time_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

QByteArray DOpTimeLayouts::time(const QDateTime& now)
{
    return DOpFields().text(DOpValues::timestamp(now), DOpValues::c_timestampWidth).data();
}
