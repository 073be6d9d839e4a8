#ifndef D_DOUBLED_REPORTS_H
#define D_DOUBLED_REPORTS_H

#include <QList>
#include <QVariantMap>

// A report frame written twice on a flaky radio link reaches the station as two reports of
// one tightening. A report whose tool fields are all those of one of the last few taken
// within a few seconds is such a copy: two real tightenings never agree to the second on
// date, time, job, program, torque and status.
class DDoubledReports
{
public:
    // True (and counted) when `record` repeats a recent report; otherwise it is remembered.
    bool isDouble(const QVariantMap& record, qint64 nowMs);
    int count() const { return m_count; }

private:
    struct DSeen {
        QVariantMap fields;
        qint64 atMs;
    };

    static QVariantMap toolFields(const QVariantMap& record);

    QList<DSeen> m_seen;  // newest last
    int m_count = 0;
};

#endif // D_DOUBLED_REPORTS_H
