#include "d_op_alarm_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

namespace {
// "50 ASCII characters" (Open Protocol R2.8.0, p.164), though its bytes read 57-107.
constexpr int c_textWidth = 50;
}

QByteArray DOpAlarmLayouts::alarm(int revision, const DAlarm& alarm)
{
    DOpFields fields;
    fields.text(1, alarm.code, codeWidth(revision))
        .number(2, 1, 1)
        .number(3, alarm.toolReady ? 1 : 0, 1)
        .text(4, DOpValues::timestamp(alarm.when), DOpValues::c_timestampWidth);
    if (revision >= 2)
        fields.text(5, alarm.text, c_textWidth);
    return fields.data();
}

QByteArray DOpAlarmLayouts::acknowledged(const DAlarm& alarm) { return DOpFields().text(alarm.code, 4).data(); }

QByteArray DOpAlarmLayouts::status(int revision, bool active, const DAlarm& alarm)
{
    return DOpFields()
        .number(1, active ? 1 : 0, 1)
        .text(2, active ? alarm.code : QString(), codeWidth(revision))
        .number(3, 1, 1)
        .number(4, !active || alarm.toolReady ? 1 : 0, 1)
        .text(5, active ? DOpValues::timestamp(alarm.when) : QString(), DOpValues::c_timestampWidth)
        .data();
}
