#ifndef D_OP_ALARM_LAYOUTS_H
#define D_OP_ALARM_LAYOUTS_H

#include <QByteArray>
#include <QDateTime>
#include <QString>

// The data of the alarm MIDs (Open Protocol R2.8.0, p.163-167): the station's alarm as a code
// (4 characters at revision 1, 5 at revision 2), the readiness of the controller (always 1:
// the station runs) and of the tool, its time and, at revision 2, its text.
class DOpAlarmLayouts
{
public:
    static constexpr int c_revisions = 2;
    struct DAlarm {
        QString code;
        QString text;
        bool toolReady = true;
        QDateTime when;
    };

    static QByteArray alarm(int revision, const DAlarm& alarm);                 // 0071
    static QByteArray acknowledged(const DAlarm& alarm);                        // 0074: the alarm is over
    // 0076: `active` false sends no code, no time and a ready tool.
    static QByteArray status(int revision, bool active, const DAlarm& alarm);

private:
    static int codeWidth(int revision) { return revision == 1 ? 4 : 5; }
};

#endif // D_OP_ALARM_LAYOUTS_H
