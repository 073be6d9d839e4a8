#include "d_collector_audit.h"

#include "d_collector.h"
#include "d_id_ranges.h"
#include "d_message_handler.h"

#include <QMap>
#include <QStringList>

#include <libpq-fe.h>

#include <cstdio>

namespace {

struct DCounts {
    DIdRanges covered;  // held or recorded as unrecoverable
    qint64 held = 0;
    qint64 filled = 0;
    qint64 unrecoverable = 0;
    qint64 lostIds = 0;
};

QString ranges(const QList<DIdRanges::DRange>& list)
{
    QStringList texts;
    for (const DIdRanges::DRange& range : list)
        texts << (range.first == range.second ? QString::number(range.first) : QStringLiteral("%1-%2").arg(range.first).arg(range.second));
    return texts.join(QStringLiteral(", "));
}

} // namespace

int DCollectorAudit::run()
{
    QString error;
    QMap<QString, DCounts> stations;
    const auto gaps = m_connection->exec("SELECT station, count(*) FILTER (WHERE state = 'filled'),"
                                         " count(*) FILTER (WHERE state = 'unrecoverable') FROM gaps GROUP BY station", {}, &error);
    const auto lost = gaps ? m_connection->exec("SELECT station, count(*), sum(to_id - from_id + 1) FROM unrecoverable GROUP BY station", {}, &error)
                           : DPostgresConnection::DResult(nullptr, PQclear);
    const auto held = lost ? m_connection->exec(
                                 "SELECT station, min(id), max(id) FROM (SELECT station, id, id - row_number() OVER (PARTITION BY station"
                                 " ORDER BY id) AS run FROM results) r GROUP BY station, run UNION ALL SELECT station, from_id, -to_id"
                                 " FROM unrecoverable", {}, &error)
                           : DPostgresConnection::DResult(nullptr, PQclear);
    if (!held) {
        DMessageHandler::say(QStringLiteral("postgres: cannot read the results: %1 (has a collector created the schema?)").arg(error));
        return DCollector::CeExitDatabase;
    }
    const auto text = [](pg_result* result, int row, int column) { return QByteArray(PQgetvalue(result, row, column)); };
    for (int row = 0; row < PQntuples(held.get()); ++row) {
        DCounts& counts = stations[QString::fromUtf8(text(held.get(), row, 0))];
        const qint64 first = text(held.get(), row, 1).toLongLong();
        const qint64 last = text(held.get(), row, 2).toLongLong();
        counts.covered.add(first, qAbs(last));
        counts.held += last > 0 ? last - first + 1 : 0;
    }
    for (int row = 0; row < PQntuples(gaps.get()); ++row) {
        DCounts& counts = stations[QString::fromUtf8(text(gaps.get(), row, 0))];
        counts.filled = text(gaps.get(), row, 1).toLongLong();
    }
    for (int row = 0; row < PQntuples(lost.get()); ++row) {
        DCounts& counts = stations[QString::fromUtf8(text(lost.get(), row, 0))];
        counts.unrecoverable = text(lost.get(), row, 1).toLongLong();
        counts.lostIds = text(lost.get(), row, 2).toLongLong();
    }
    bool open = false;
    for (auto it = stations.cbegin(); it != stations.cend(); ++it) {
        const QList<DIdRanges::DRange> holes = it->covered.holes(it->covered.last());
        open = open || !holes.isEmpty();
        std::printf("%s: %lld held (last %lld), %d gap(s) open%s, %lld filled, %lld unrecoverable (%lld id(s))\n",
                    qPrintable(it.key()), it->held, it->covered.last(), int(holes.size()),
                    holes.isEmpty() ? "" : qPrintable(QStringLiteral(" (") + ranges(holes) + QLatin1Char(')')), it->filled,
                    it->unrecoverable, it->lostIds);
    }
    return open ? DCollector::CeExitFailure : DCollector::CeExitSuccess;
}
