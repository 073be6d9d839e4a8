#ifndef D_ID_RANGES_H
#define D_ID_RANGES_H

#include <QList>
#include <QMap>
#include <QPair>

// A set of tightening ids as merged ranges: a station's dense ids stay one range, whatever their count.
class DIdRanges
{
public:
    using DRange = QPair<qint64, qint64>;  // first, last (both included)

    void add(qint64 first, qint64 last);
    bool contains(qint64 id) const;
    qint64 last() const { return m_ranges.isEmpty() ? 0 : m_ranges.last(); }
    qint64 count() const;
    // The ids from 1 to `upTo` that are not in the set, as ranges.
    QList<DRange> holes(qint64 upTo) const;

private:
    QMap<qint64, qint64> m_ranges;  // first -> last, disjoint and not adjacent
};

#endif // D_ID_RANGES_H
