#include "d_report_log.h"

#include <QJsonObject>

void DReportLog::add(const DReportShaper::Report& report, int copies, qint64 endOffset)
{
    m_entries.append({report, copies, endOffset, false});
}

void DReportLog::settle(qint64 writtenOffset)
{
    for (; m_firstSettling < m_entries.size(); ++m_firstSettling)
        m_entries[m_firstSettling].sent = m_entries.at(m_firstSettling).endOffset <= writtenOffset;
}

QJsonArray DReportLog::toJson() const
{
    QJsonArray reports;
    for (const DEntry& entry : m_entries) {
        reports.append(QJsonObject{{"line", entry.report.line},
                                   {"shape", entry.report.shape},
                                   {"published", entry.report.published},
                                   {"copies", entry.copies},
                                   {"sent", entry.sent}});
    }
    return reports;
}
