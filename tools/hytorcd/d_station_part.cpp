#include "d_station_part.h"

#include "d_result_journal.h"

#include <QVector>

DStationPart::DStationPart(DResultJournal* journal, const QString& station, QObject* parent)
    : QObject(parent)
    , m_journal(journal)
    , m_station(station)
    , m_identifiers(QVector<QString>(c_identifierParts).toList())
{
}

void DStationPart::setProgramSettings(const QHash<int, DProgramSettings>& programs) { m_programs = programs; }

DStationPart::DProgramSettings DStationPart::programSettings(int progId) const
{
    DProgramSettings settings = m_programs.value(progId);
    settings.batchSize = m_batchSizes.value(progId, settings.batchSize);
    return settings;
}

bool DStationPart::identify(int part, const QString& value, const QString& source, QString* error)
{
    Q_UNUSED(source)
    if (part < 1 || part > c_identifierParts) {
        *error = QStringLiteral("identifier part %1: there are parts 1 to %2").arg(part).arg(c_identifierParts);
        return false;
    }
    m_identifiers[part - 1] = value;
    emit sigIdentifiersChanged();
    return true;
}

QString DStationPart::identifier(int part) const { return m_identifiers.value(part - 1); }

QStringList DStationPart::identifiers() const { return m_identifiers; }

void DStationPart::setActiveProgram(int progId) { m_activeProgram = progId; }

bool DStationPart::setBatchSize(int progId, int size, QString* error)
{
    if (size < 1 || size > 99) {
        *error = QStringLiteral("batch size %1: a batch is 1 to 99 tightenings").arg(size);
        return false;
    }
    m_batchSizes.insert(progId, size);
    emit sigBatchChanged();
    return true;
}

void DStationPart::resetBatch(const QString& why)
{
    Q_UNUSED(why)
    m_batchCounter = 0;
    emit sigBatchChanged();
}

int DStationPart::batchSize() const { return programSettings(m_activeProgram).batchSize; }

DStationPart::EnBatchStatus DStationPart::batchStatus() const
{
    if (batchSize() == 0)
        return CeBatchNotUsed;
    return m_batchCounter >= batchSize() ? CeBatchCompletedOk : CeBatchNotCompleted;
}
