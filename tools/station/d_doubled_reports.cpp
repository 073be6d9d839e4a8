#include "d_doubled_reports.h"

namespace {

constexpr int c_remembered = 8;
constexpr qint64 c_windowMs = 5000;
// The driver's number of the chunk that carried the report: each copy has its own.
const QString c_driverKey = QStringLiteral("eventCountNo");

} // namespace

bool DDoubledReports::isDouble(const QVariantMap& record, qint64 nowMs)
{
    const QVariantMap fields = toolFields(record);
    for (const DSeen& seen : qAsConst(m_seen)) {
        if (nowMs - seen.atMs <= c_windowMs && seen.fields == fields) {
            ++m_count;
            return true;
        }
    }
    m_seen.append({fields, nowMs});
    if (m_seen.size() > c_remembered)
        m_seen.removeFirst();
    return false;
}

QVariantMap DDoubledReports::toolFields(const QVariantMap& record)
{
    QVariantMap fields = record;
    fields.remove(c_driverKey);
    return fields;
}
