#include "d_program_table.h"

#include <QStringList>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace {

const QStringList c_limitKeys{QStringLiteral("torque_min"), QStringLiteral("torque_max"), QStringLiteral("angle_min"),
                              QStringLiteral("angle_max")};
const QString c_batchKey = QStringLiteral("batch_size");

QString shown(const std::optional<double>& value) { return value ? QString::number(*value) : QStringLiteral("-"); }

} // namespace

const QString DProgramTable::c_sectionPrefix = QStringLiteral("program.");

bool DProgramTable::read(const DStationConfig& config, QHash<int, DStationPart::DProgramSettings>* programs,
                         QString* error)
{
    const DStationConfig::DSections& sections = config.sections();
    for (auto it = sections.constBegin(); it != sections.constEnd(); ++it) {
        const QString where = QStringLiteral("%1: [%2]").arg(config.filePath(), it.key());
        bool ok = false;
        const int progId = it.key().mid(c_sectionPrefix.size()).toInt(&ok);
        if (!ok || progId < 1 || progId > 999) {
            *error = QStringLiteral("%1: a program section is [program.N], N its id in the tool's list (1 to 999)").arg(where);
            return false;
        }
        DStationPart::DProgramSettings settings;
        if (!readSection(where, it.value(), &settings, error))
            return false;
        programs->insert(progId, settings);
    }
    return true;
}

bool DProgramTable::readSection(const QString& where, const QMap<QString, QString>& keys,
                                DStationPart::DProgramSettings* settings, QString* error)
{
    std::optional<double>* limits[] = {&settings->torqueMin, &settings->torqueMax, &settings->angleMin, &settings->angleMax};
    for (auto it = keys.constBegin(); it != keys.constEnd(); ++it) {
        bool ok = false;
        const int index = c_limitKeys.indexOf(it.key());
        if (index >= 0) {
            const double value = it.value().toDouble(&ok);
            if (!ok || value < 0 || !std::isfinite(value)) {
                *error = QStringLiteral("%1: key \"%2\": \"%3\" is not allowed (allowed: a number, 0 or more)")
                             .arg(where, it.key(), it.value());
                return false;
            }
            *limits[index] = value;
        } else if (it.key() == c_batchKey) {
            settings->batchSize = it.value().toInt(&ok);
            if (!ok || settings->batchSize < 1 || settings->batchSize > DStationPart::c_maxBatchSize) {
                *error = QStringLiteral("%1: key \"%2\": \"%3\" is not allowed (allowed: 1 to %4 tightenings)")
                             .arg(where, it.key(), it.value()).arg(DStationPart::c_maxBatchSize);
                return false;
            }
        } else {
            *error = QStringLiteral("%1: unknown key \"%2\" (known: %3, %4)").arg(where, it.key(), c_limitKeys.join(", "), c_batchKey);
            return false;
        }
    }
    for (const auto& [low, high, name] : {std::tuple(settings->torqueMin, settings->torqueMax, "torque"),
                                          std::tuple(settings->angleMin, settings->angleMax, "angle")}) {
        if (low && high && *low > *high) {
            *error = QStringLiteral("%1: %2_min %3 is above %2_max %4").arg(where, QLatin1String(name)).arg(*low).arg(*high);
            return false;
        }
    }
    return true;
}

QString DProgramTable::table(const QHash<int, DStationPart::DProgramSettings>& programs)
{
    QList<int> ids = programs.keys();
    std::sort(ids.begin(), ids.end());
    QString text = QStringLiteral("program  torque_min  torque_max  angle_min  angle_max  batch_size\n");
    for (const int id : ids) {
        const DStationPart::DProgramSettings& p = programs.value(id);
        text += QStringLiteral("%1  %2  %3  %4  %5  %6\n")
                    .arg(id, 7).arg(shown(p.torqueMin), 10).arg(shown(p.torqueMax), 10).arg(shown(p.angleMin), 9)
                    .arg(shown(p.angleMax), 9).arg(p.batchSize ? QString::number(p.batchSize) : QStringLiteral("-"), 10);
    }
    if (ids.isEmpty())
        text += QStringLiteral("(no [program.N] section: no limits, no batches)\n");
    return text;
}
