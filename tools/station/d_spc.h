#ifndef D_SPC_H
#define D_SPC_H

#include "d_result_journal.h"

#include <QByteArray>
#include <QMap>
#include <QStringList>
#include <QVariantList>

#include <optional>
#include <vector>

// Statistical process control of one program's torques: fed rows in id order from wherever
// they are kept, it gives the figures a quality engineer judges a joint by. Torques in N·m.
class DSpc
{
public:
    struct DFigures {
        int program = 0;
        qint64 n = 0;
        std::optional<double> mean, stdev, min, max;  // stdev: sample (n - 1), from 2 results
        std::optional<double> lsl, usl, target;       // the limits of the newest row that has them
        std::optional<double> cp, cpk;                // undefined without limits or spread
        std::optional<double> nokRate;                // share of results whose status is not good
    };

    // The journal keys add() reads, in its order (the limits where the journal keeps them).
    static QStringList keys();

    // Each program's figures over the journal's rows of `query` (one program when it names one).
    static bool fromJournal(const DResultJournal& journal, const DResultJournal::DQuery& query,
                            QMap<int, DSpc>* programs, QString* error);

    explicit DSpc(int program = 0);
    // One row: the values of keys() in order.
    void add(const QVariantList& row);
    // The same, field by field: the torque as the journal keeps it (x 100, in `unit`), limits NaN when not set.
    void add(qint64 id, double convertedTorque, QLatin1String unit, QLatin1String status, double lsl, double usl);
    DFigures figures() const;
    // The figures as one JSON object; with `charts`, also "run" (the last points: id and torque)
    // and "histogram" (from, width, counts) for the page's charts.
    QByteArray json(bool charts) const;

private:
    QByteArray chartsJson() const;

    int m_program;
    qint64 m_nok = 0;
    double m_mean = 0;  // Welford's running mean and sum of squared deviations
    double m_squares = 0;
    std::vector<double> m_values;
    std::vector<qint64> m_ids;
    std::optional<double> m_lsl, m_usl;
    QByteArray m_unit;  // the last unit seen and its factor to N·m: units seldom change from row to row
    double m_factor = 0.01;
    QByteArray m_status;  // likewise the last status word and whether it is a good one
    bool m_good = false;
};

#endif // D_SPC_H
