#include "d_completeness_ledger.h"

void DCompletenessLedger::received(const QString& station, const QByteArray& prefix, qint64 id)
{
    DStation& entry = m_stations[station];
    entry.prefix = prefix;
    entry.ids.add(id, id);
}

void DCompletenessLedger::held(const QString& station, qint64 first, qint64 last)
{
    auto it = m_stations.find(station);
    if (it != m_stations.end())
        it->ids.add(first, last);
}

QString DCompletenessLedger::stationOf(const QByteArray& prefix) const
{
    for (auto it = m_stations.cbegin(); it != m_stations.cend(); ++it) {
        if (it->prefix == prefix)
            return it.key();
    }
    return QString();
}

// The holes as they are now, each keeping when it (or the hole it shrank from) was first seen and
// asked; both lists are in id order, so one walk pairs them.
void DCompletenessLedger::refresh(DStation* station, qint64 nowMs)
{
    QMap<qint64, DSeen> holes;
    auto old = station->holes.cbegin();
    for (const DIdRanges::DRange& hole : station->ids.holes(station->ids.last())) {
        while (old != station->holes.cend() && old->last < hole.first)
            ++old;
        DSeen seen{hole.second, nowMs, 0};
        for (auto it = old; it != station->holes.cend() && it.key() <= hole.second; ++it) {
            seen.seenMs = qMin(seen.seenMs, it->seenMs);
            seen.askedMs = qMax(seen.askedMs, it->askedMs);
        }
        holes.insert(hole.first, seen);
    }
    station->holes = holes;
}

QList<DCompletenessLedger::DHole> DCompletenessLedger::due(qint64 nowMs)
{
    QList<DHole> found;
    for (auto it = m_stations.begin(); it != m_stations.end(); ++it) {
        refresh(&it.value(), nowMs);
        for (auto hole = it->holes.cbegin(); hole != it->holes.cend(); ++hole) {
            if (nowMs - hole->seenMs >= m_graceMs && (hole->askedMs == 0 || nowMs - hole->askedMs >= c_reaskMs))
                found.append({it.key(), it->prefix, hole.key(), hole->last});
        }
    }
    return found;
}

void DCompletenessLedger::asked(const DHole& hole, qint64 nowMs)
{
    DStation& station = m_stations[hole.station];
    auto it = station.holes.find(hole.first);
    if (it != station.holes.end())
        it->askedMs = nowMs;
    for (const DHole& each : qAsConst(station.asked)) {
        if (each.first == hole.first && each.last == hole.last)
            return;
    }
    station.asked.append(hole);
}

QList<DCompletenessLedger::DHole> DCompletenessLedger::closed(qint64 nowMs)
{
    QList<DHole> found;
    for (auto it = m_stations.begin(); it != m_stations.end(); ++it) {
        refresh(&it.value(), nowMs);
        for (int i = it->asked.size() - 1; i >= 0; --i) {
            const DHole& range = it->asked.at(i);
            bool open = false;
            for (auto hole = it->holes.cbegin(); hole != it->holes.cend() && !open; ++hole)
                open = hole.key() <= range.last && hole->last >= range.first;
            if (!open)
                found.append(it->asked.takeAt(i));
        }
    }
    return found;
}
