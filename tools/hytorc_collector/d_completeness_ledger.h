#ifndef D_COMPLETENESS_LEDGER_H
#define D_COMPLETENESS_LEDGER_H

#include "d_id_ranges.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

// What the collector knows of each station's ids, which are dense in its journal: those
// received (stored or on their way), those the database holds (asked of it before a hole is
// reported: another collector of the share group may have them) and those the station says
// are gone. A hole below the highest id seen, older than the grace time, is due for a replay
// request; asked again every c_reaskMs while it stays.
class DCompletenessLedger
{
public:
    static constexpr qint64 c_reaskMs = 30000;

    struct DHole {
        QString station;
        QByteArray prefix;  // the station's topics: PREFIX/replay takes the request
        qint64 first;
        qint64 last;
    };

    explicit DCompletenessLedger(qint64 graceMs) : m_graceMs(graceMs) {}

    void received(const QString& station, const QByteArray& prefix, qint64 id);
    void held(const QString& station, qint64 first, qint64 last);
    // The station whose topics are `prefix`; empty when none was seen yet.
    QString stationOf(const QByteArray& prefix) const;

    // The holes older than the grace time that were not asked for lately.
    QList<DHole> due(qint64 nowMs);
    // Remembers that `hole` was asked for now.
    void asked(const DHole& hole, qint64 nowMs);
    // The ranges asked for that have no hole left: they are closed once.
    QList<DHole> closed(qint64 nowMs);

private:
    struct DSeen {
        qint64 last;
        qint64 seenMs;
        qint64 askedMs;
    };
    struct DStation {
        QByteArray prefix;
        DIdRanges ids;
        QMap<qint64, DSeen> holes;  // first -> when first seen, when last asked
        QList<DHole> asked;
    };

    void refresh(DStation* station, qint64 nowMs);

    qint64 m_graceMs;
    QHash<QString, DStation> m_stations;
};

#endif // D_COMPLETENESS_LEDGER_H
