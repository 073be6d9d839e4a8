#include "d_op_identifier_layouts.h"

#include "d_op_fields.h"
#include "d_op_values.h"

QByteArray DOpIdentifierLayouts::identifiers(int revision, const QStringList& parts)
{
    DOpFields fields;
    if (revision == 1)
        return fields.text(parts.value(0), DOpValues::c_nameWidth).data();
    for (int part = 1; part <= 4; ++part)
        fields.text(part, parts.value(part - 1), DOpValues::c_nameWidth);
    return fields.data();
}
