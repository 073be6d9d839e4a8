#include "d_id_ranges.h"

void DIdRanges::add(qint64 first, qint64 last)
{
    if (last < first)
        return;
    // The range before may touch or overlap: start from it.
    auto it = m_ranges.upperBound(first);
    if (it != m_ranges.begin() && std::prev(it).value() >= first - 1) {
        --it;
        first = it.key();
        last = qMax(last, it.value());
        it = m_ranges.erase(it);
    }
    while (it != m_ranges.end() && it.key() <= last + 1) {
        last = qMax(last, it.value());
        it = m_ranges.erase(it);
    }
    m_ranges.insert(first, last);
}

bool DIdRanges::contains(qint64 id) const
{
    auto it = m_ranges.upperBound(id);
    return it != m_ranges.begin() && std::prev(it).value() >= id;
}

qint64 DIdRanges::count() const
{
    qint64 total = 0;
    for (auto it = m_ranges.cbegin(); it != m_ranges.cend(); ++it)
        total += it.value() - it.key() + 1;
    return total;
}

QList<DIdRanges::DRange> DIdRanges::holes(qint64 upTo) const
{
    QList<DRange> found;
    qint64 next = 1;
    for (auto it = m_ranges.cbegin(); it != m_ranges.cend() && next <= upTo; ++it) {
        if (it.key() > next)
            found << DRange(next, qMin(it.key() - 1, upTo));
        next = it.value() + 1;
    }
    if (next <= upTo)
        found << DRange(next, upTo);
    return found;
}
