#ifndef D_OP_TOOL_LAYOUTS_H
#define D_OP_TOOL_LAYOUTS_H

#include "d_op_settings.h"

#include <QByteArray>
#include <QVariantMap>

// The data of the tool's MIDs (Open Protocol R2.8.0, p.121-122).
class DOpToolLayouts
{
public:
    // 0041 revision 1 from getToolInfo's map.
    static QByteArray toolData(const QVariantMap& toolInfo, const DOpSettings& settings);
};

#endif // D_OP_TOOL_LAYOUTS_H
