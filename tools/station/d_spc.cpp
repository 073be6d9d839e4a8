#include "d_spc.h"

#include "d_result_record.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int c_runPoints = 1000;
constexpr double c_none = std::numeric_limits<double>::quiet_NaN();  // a limit not set
constexpr int c_maxBins = 30;
const QStringList c_goodStatus{QStringLiteral("PASSED"), QStringLiteral("OK")};

void appendNumber(QByteArray* out, const char* key, const std::optional<double>& value)
{
    out->append(",\"").append(key).append("\":");
    out->append(value ? QByteArray::number(*value, 'g', 12) : QByteArray("null"));
}

double limit(const QVariantList& row, int column)
{
    const QVariant value = row.value(column);
    return value.isNull() || value.toString().isEmpty() ? c_none : value.toDouble();
}

std::optional<double> unlessNan(double value) { return std::isnan(value) ? std::nullopt : std::optional<double>(value); }

} // namespace

QStringList DSpc::keys()
{
    QStringList keys{QStringLiteral("id"), QStringLiteral("convertedTorque"), QStringLiteral("torqueUnit"),
                     QStringLiteral("status")};
    for (const char* key : {"torqueMin", "torqueMax"}) {
        if (DResultRecord::journalKeys().contains(QLatin1String(key)))
            keys << QLatin1String(key);
    }
    return keys;
}

bool DSpc::fromJournal(const DResultJournal& journal, const DResultJournal::DQuery& query, QMap<int, DSpc>* programs,
                       QString* error)
{
    if (query.progId > 0)
        programs->insert(query.progId, DSpc(query.progId));
    const bool limits = keys().size() > 4;
    DSpc* last = nullptr;
    return journal.forEachRaw(query, QStringList(QStringLiteral("progId")) + keys(), [&](const DResultJournal::DRawRow& row) {
        const int program = int(row.integer(0));
        if (!last || last->m_program != program) {
            auto it = programs->find(program);
            last = &*(it != programs->end() ? it : programs->insert(program, DSpc(program)));
        }
        last->add(row.integer(1), row.number(2), row.text(3), row.text(4), limits ? row.number(5) : c_none,
                  limits ? row.number(6) : c_none);
        return true;
    }, error);
}

DSpc::DSpc(int program)
    : m_program(program)
{
}

void DSpc::add(const QVariantList& row)
{
    add(row.at(0).toLongLong(), row.at(1).toDouble(), QLatin1String(row.at(2).toString().toLatin1()),
        QLatin1String(row.at(3).toString().toLatin1()), limit(row, 4), limit(row, 5));
}

void DSpc::add(qint64 id, double convertedTorque, QLatin1String unit, QLatin1String status, double lsl, double usl)
{
    if (unit != QLatin1String(m_unit)) {
        m_unit = QByteArray(unit.data(), unit.size());
        m_factor = DResultRecord::newtonMetresPer(unit).value_or(1.0) / 100.0;
    }
    const double torque = convertedTorque * m_factor;
    m_ids.push_back(id);
    m_values.push_back(torque);
    const double delta = torque - m_mean;
    m_mean += delta / double(m_values.size());
    m_squares += delta * (torque - m_mean);
    if (status != QLatin1String(m_status)) {
        m_status = QByteArray(status.data(), status.size());
        m_good = c_goodStatus.contains(QString(status.trimmed()), Qt::CaseInsensitive);
    }
    m_nok += m_good ? 0 : 1;
    if (!std::isnan(lsl) || !std::isnan(usl)) {
        m_lsl = unlessNan(lsl);
        m_usl = unlessNan(usl);
    }
}

DSpc::DFigures DSpc::figures() const
{
    DFigures figures;
    figures.program = m_program;
    figures.n = qint64(m_values.size());
    figures.lsl = m_lsl;
    figures.usl = m_usl;
    if (m_lsl && m_usl)
        figures.target = (*m_lsl + *m_usl) / 2;
    if (figures.n == 0)
        return figures;
    figures.mean = m_mean;
    figures.min = *std::min_element(m_values.cbegin(), m_values.cend());
    figures.max = *std::max_element(m_values.cbegin(), m_values.cend());
    figures.nokRate = double(m_nok) / double(figures.n);
    if (figures.n < 2)
        return figures;
    const double sigma = std::sqrt(m_squares / double(figures.n - 1));
    figures.stdev = sigma;
    if (sigma <= 0)
        return figures;
    if (m_lsl && m_usl)
        figures.cp = (*m_usl - *m_lsl) / (6 * sigma);
    // One limit is a one-sided capability; the nearer side counts when there are two.
    std::optional<double> cpk;
    if (m_usl)
        cpk = (*m_usl - m_mean) / (3 * sigma);
    if (m_lsl)
        cpk = std::min(cpk.value_or(HUGE_VAL), (m_mean - *m_lsl) / (3 * sigma));
    figures.cpk = cpk;
    return figures;
}

QByteArray DSpc::json(bool charts) const
{
    const DFigures f = figures();
    QByteArray out = "{\"program\":" + QByteArray::number(f.program) + ",\"n\":" + QByteArray::number(f.n);
    appendNumber(&out, "mean", f.mean);
    appendNumber(&out, "stdev", f.stdev);
    appendNumber(&out, "min", f.min);
    appendNumber(&out, "max", f.max);
    appendNumber(&out, "lsl", f.lsl);
    appendNumber(&out, "usl", f.usl);
    appendNumber(&out, "target", f.target);
    appendNumber(&out, "cp", f.cp);
    appendNumber(&out, "cpk", f.cpk);
    appendNumber(&out, "nokRate", f.nokRate);
    if (charts)
        out += chartsJson();
    return out + '}';
}

// The run chart's newest points and a histogram over the values and the limits.
QByteArray DSpc::chartsJson() const
{
    QByteArray out = ",\"run\":[";
    const size_t first = m_values.size() > size_t(c_runPoints) ? m_values.size() - c_runPoints : 0;
    for (size_t i = first; i < m_values.size(); ++i)
        out += (i > first ? ",[" : "[") + QByteArray::number(m_ids[i]) + ',' + QByteArray::number(m_values[i], 'g', 12) + ']';
    out += "],\"histogram\":{";
    if (m_values.empty())
        return out + '}';
    double low = *std::min_element(m_values.cbegin(), m_values.cend());
    double high = *std::max_element(m_values.cbegin(), m_values.cend());
    for (const auto& bound : {m_lsl, m_usl}) {
        low = std::min(low, bound.value_or(low));
        high = std::max(high, bound.value_or(high));
    }
    const int bins = std::clamp(int(std::ceil(std::sqrt(double(m_values.size())))), 1, c_maxBins);
    const double width = high > low ? (high - low) / bins : 1.0;
    std::vector<qint64> counts(size_t(bins), 0);
    for (const double value : m_values)
        ++counts[size_t(std::clamp(int((value - low) / width), 0, bins - 1))];
    out += "\"from\":" + QByteArray::number(low, 'g', 12) + ",\"width\":" + QByteArray::number(width, 'g', 12) + ",\"counts\":[";
    for (size_t i = 0; i < counts.size(); ++i)
        out += (i ? "," : "") + QByteArray::number(counts[i]);
    return out + "]}";
}
