#ifndef D_OP_TIME_LAYOUTS_H
#define D_OP_TIME_LAYOUTS_H

#include <QByteArray>
#include <QDateTime>

// The data of the time MIDs (Open Protocol R2.8.0, p.169).
class DOpTimeLayouts
{
public:
    static QByteArray time(const QDateTime& now);  // 0081 revision 1
};

#endif // D_OP_TIME_LAYOUTS_H
