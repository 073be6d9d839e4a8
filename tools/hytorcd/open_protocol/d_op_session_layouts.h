#ifndef D_OP_SESSION_LAYOUTS_H
#define D_OP_SESSION_LAYOUTS_H

#include "d_op_settings.h"

#include <QByteArray>

// The data of the session's own MIDs (Open Protocol R2.8.0, p.70-77).
class DOpSessionLayouts
{
public:
    static QByteArray communicationStart(const DOpSettings& settings);  // 0002 revision 1
    static QByteArray accepted(int mid);                                 // 0005
    // 0004: exactly the MID and the code, no field ids; one client reads the code as the
    // number after the MID.
    static QByteArray refused(int mid, int code);
};

#endif // D_OP_SESSION_LAYOUTS_H
