#include "d_op_session_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

QByteArray DOpSessionLayouts::communicationStart(const DOpSettings& settings)
{
    return DOpFields()
        .number(1, settings.cell, 4)
        .number(2, settings.channel, 2)
        .text(3, settings.station, DOpValues::c_nameWidth)
        .data();
}

QByteArray DOpSessionLayouts::accepted(int mid) { return DOpFields().number(mid, 4).data(); }

QByteArray DOpSessionLayouts::refused(int mid, int code) { return DOpFields().number(mid, 4).number(code, 2).data(); }
