#ifndef D_REPORT_LOG_H
#define D_REPORT_LOG_H

#include <QJsonArray>
#include <QList>

#include "d_report_shaper.h"

// Every tightening report handed to the link, and whether its bytes left the port:
// a report still queued when the link drops or the simulator ends was never sent.
class DReportLog
{
public:
    // `endOffset`: the pacer's total of queued bytes once the report's last copy was queued.
    void add(const DReportShaper::Report& report, int copies, qint64 endOffset);
    // Settles every report not settled yet: sent when its bytes are all written (up to
    // `writtenOffset`), never sent otherwise (the link dropped, or the end came first).
    void settle(qint64 writtenOffset);
    // [{"line", "shape", "published", "copies", "sent"}], in the order sent.
    QJsonArray toJson() const;

private:
    struct DEntry {
        DReportShaper::Report report;
        int copies;
        qint64 endOffset;
        bool sent;
    };

    QList<DEntry> m_entries;
    int m_firstSettling = 0;
};

#endif // D_REPORT_LOG_H
