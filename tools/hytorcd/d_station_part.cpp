#include "d_station_part.h"

#include "d_message_handler.h"
#include "d_result_journal.h"
#include "d_result_record.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

namespace {

// Run-time batch sizes by program id, one JSON object in the journal's state table.
const QString c_batchSizesState = QStringLiteral("part.batchSizes");
const QStringList c_identifierKeys{QStringLiteral("identifier"), QStringLiteral("identifier2"),
                                   QStringLiteral("identifier3"), QStringLiteral("identifier4")};

// "low", "ok" or "high" against the limits known; empty when there is nothing to judge.
QString judged(std::optional<double> value, std::optional<double> minimum, std::optional<double> maximum)
{
    if (!value || (!minimum && !maximum))
        return QString();
    if (minimum && *value < *minimum)
        return QStringLiteral("low");
    if (maximum && *value > *maximum)
        return QStringLiteral("high");
    return QStringLiteral("ok");
}

void insertKnown(QVariantMap* record, const char* key, std::optional<double> value)
{
    if (value)
        record->insert(QLatin1String(key), *value);
}

// An identifier travels in fixed-width protocol fields and CSV lines: printable ASCII, no comma.
QString identifierFault(const QString& value)
{
    if (value.isEmpty())
        return QStringLiteral("is empty");
    if (value.size() > DStationPart::c_identifierWidth)
        return QStringLiteral("is %1 characters long; an identifier has at most %2")
            .arg(value.size()).arg(DStationPart::c_identifierWidth);
    for (const QChar c : value) {
        if (c.unicode() < 0x20 || c.unicode() > 0x7e)
            return QStringLiteral("holds a character that is not printable ASCII (0x%1)").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        if (c == QLatin1Char(','))
            return QStringLiteral("holds a comma, which would split the result's CSV and protocol fields");
    }
    return QString();
}

// What a person reads of a value: unprintable characters escaped, cut to a line.
QString shown(const QString& value)
{
    QString text;
    for (const QChar c : value.left(40))
        text += c.unicode() >= 0x20 && c.unicode() <= 0x7e ? QString(c) : QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
    return value.size() > 40 ? text + QStringLiteral("...") : text;
}

} // namespace

DStationPart::DStationPart(DResultJournal* journal, const QString& station, QObject* parent)
    : QObject(parent)
    , m_journal(journal)
    , m_station(station)
    , m_identifiers(QVector<QString>(c_identifierParts).toList())
{
    loadBatchSizes();
    restoreFromLastResult();
}

void DStationPart::setProgramSettings(const QHash<int, DProgramSettings>& programs) { m_programs = programs; }

DStationPart::DProgramSettings DStationPart::programSettings(int progId) const
{
    DProgramSettings settings = m_programs.value(progId);
    settings.batchSize = m_batchSizes.value(progId, settings.batchSize);
    return settings;
}

void DStationPart::setLockAtBatchDone(bool enabled)
{
    m_lockAtBatchDone = enabled;
    updateLockAtBatchDone();
}

bool DStationPart::identify(int part, const QString& value, const QString& source, QString* error)
{
    if (part < 1 || part > c_identifierParts) {
        *error = QStringLiteral("identifier part %1: there are parts 1 to %2").arg(part).arg(c_identifierParts);
        return false;
    }
    const QString fault = identifierFault(value);
    if (!fault.isEmpty()) {
        *error = QStringLiteral("identifier \"%1\" from %2 refused: it %3").arg(shown(value), source, fault);
        return false;
    }
    // The same part scanned again is no new part: its batch goes on (a done batch stays done).
    if (part == 1 && value == m_identifiers.first()) {
        DMessageHandler::say(QStringLiteral("identifier %1 from %2 is already current").arg(value, source));
        return true;
    }
    m_identifiers[part - 1] = value;
    recordEvent(QStringLiteral("identifier"), QStringLiteral("identifier part %1 is %2 (from %3)").arg(part).arg(value, source));
    emit sigIdentifiersChanged();
    if (part == 1)
        resetBatch(QStringLiteral("new identifier %1").arg(value));
    return true;
}

QString DStationPart::identifier(int part) const { return m_identifiers.value(part - 1); }

QStringList DStationPart::identifiers() const { return m_identifiers; }

void DStationPart::setActiveProgram(int progId)
{
    if (progId == m_activeProgram)
        return;
    const bool known = m_activeProgram != 0;
    m_activeProgram = progId;
    if (known)
        resetBatch(QStringLiteral("program %1 selected").arg(progId));
    else
        updateLockAtBatchDone();
}

bool DStationPart::setBatchSize(int progId, int size, QString* error)
{
    if (size < 1 || size > c_maxBatchSize) {
        *error = QStringLiteral("batch size %1: a batch is 1 to %2 tightenings").arg(size).arg(c_maxBatchSize);
        return false;
    }
    QJsonObject sizes = QJsonDocument::fromJson(m_journal->state(c_batchSizesState).toUtf8()).object();
    sizes.insert(QString::number(progId), size);
    if (!m_journal->setState(c_batchSizesState, QString::fromUtf8(QJsonDocument(sizes).toJson(QJsonDocument::Compact)), error))
        return false;
    m_batchSizes.insert(progId, size);
    recordEvent(QStringLiteral("batch-size"), QStringLiteral("batch size of program %1 set to %2").arg(progId).arg(size));
    emit sigBatchChanged();
    updateLockAtBatchDone();
    return true;
}

void DStationPart::resetBatch(const QString& why)
{
    m_batchCounter = 0;
    if (batchSize() > 0)
        recordEvent(QStringLiteral("batch-reset"), QStringLiteral("batch of program %1 reset: %2").arg(m_activeProgram).arg(why));
    emit sigBatchChanged();
    updateLockAtBatchDone();
}

int DStationPart::batchSize() const { return programSettings(m_activeProgram).batchSize; }

DStationPart::EnBatchStatus DStationPart::batchStatus() const
{
    if (batchSize() == 0)
        return CeBatchNotUsed;
    return m_batchCounter >= batchSize() ? CeBatchCompletedOk : CeBatchNotCompleted;
}

void DStationPart::stamp(QVariantMap* record)
{
    const int progId = record->value(QStringLiteral("progId")).toInt();
    if (progId > 0)
        setActiveProgram(progId);
    for (int i = 0; i < c_identifierParts; ++i) {
        if (!m_identifiers.at(i).isEmpty())
            record->insert(c_identifierKeys.at(i), m_identifiers.at(i));
    }
    const DProgramSettings settings = programSettings(m_activeProgram);
    insertKnown(record, "torqueMin", settings.torqueMin);
    insertKnown(record, "torqueMax", settings.torqueMax);
    insertKnown(record, "angleMin", settings.angleMin);
    insertKnown(record, "angleMax", settings.angleMax);
    record->insert(QStringLiteral("torqueStatus"),
                   judged(DResultRecord::newtonMetres(*record), settings.torqueMin, settings.torqueMax));
    // The tool's report carries no final angle the station keeps: nothing to judge.
    record->insert(QStringLiteral("angleStatus"), judged(std::nullopt, settings.angleMin, settings.angleMax));
    countInBatch(m_goodStatus.contains(record->value(QStringLiteral("status")).toString().trimmed(), Qt::CaseInsensitive),
                 record);
}

// An OK result counts; a NOK is said and leaves the counter as it was.
void DStationPart::countInBatch(bool good, QVariantMap* record)
{
    const int size = batchSize();
    if (size == 0) {
        record->insert(QStringLiteral("batchStatus"), int(CeBatchNotUsed));
        return;
    }
    // Without error-proofing nothing held the tool: a done batch starts again. With it, a result
    // that beat the lock to the tool is no part of another batch.
    if (good && m_batchCounter >= size && !m_lockAtBatchDone)
        m_batchCounter = 0;
    const bool counted = good && m_batchCounter < size;
    if (counted)
        ++m_batchCounter;
    else if (!good)
        DMessageHandler::say(QStringLiteral("a NOK tightening (%1) does not count in the batch of program %2 (%3 of %4)")
                                 .arg(record->value(QStringLiteral("status")).toString()).arg(m_activeProgram)
                                 .arg(m_batchCounter).arg(size));
    record->insert(QStringLiteral("batchSize"), size);
    record->insert(QStringLiteral("batchCounter"), m_batchCounter);
    record->insert(QStringLiteral("batchStatus"), int(batchStatus()));
    if (counted && m_batchCounter == size)
        recordEvent(QStringLiteral("batch-done"), QStringLiteral("batch of program %1 done (%2 of %2)").arg(m_activeProgram).arg(size));
    emit sigBatchChanged();
    updateLockAtBatchDone();
}

void DStationPart::updateLockAtBatchDone()
{
    const bool locked = m_lockAtBatchDone && batchStatus() == CeBatchCompletedOk;
    if (locked == m_lockedAtBatchDone)
        return;
    m_lockedAtBatchDone = locked;
    emit sigLockAtBatchDoneChanged(locked);
}

void DStationPart::recordEvent(const QString& kind, const QString& text)
{
    DMessageHandler::say(text);
    QString error;
    if (!m_journal->recordEvent(m_station, kind, text, &error))
        DMessageHandler::say(error);
}

void DStationPart::restoreFromLastResult()
{
    const QVariantMap last = m_journal->row(m_journal->lastId());
    if (!last.contains(c_identifierKeys.first()))
        return;
    for (int i = 0; i < c_identifierParts; ++i)
        m_identifiers[i] = last.value(c_identifierKeys.at(i)).toString();
    m_activeProgram = last.value(QStringLiteral("progId")).toInt();
    m_batchCounter = last.value(QStringLiteral("batchCounter")).toInt();
    DMessageHandler::say(QStringLiteral("part of result %1 still current: identifier %2, program %3, batch %4 of %5")
                             .arg(last.value(QStringLiteral("id")).toLongLong()).arg(m_identifiers.first())
                             .arg(m_activeProgram).arg(m_batchCounter).arg(batchSize()));
}

void DStationPart::loadBatchSizes()
{
    const QJsonObject sizes = QJsonDocument::fromJson(m_journal->state(c_batchSizesState).toUtf8()).object();
    for (auto it = sizes.constBegin(); it != sizes.constEnd(); ++it)
        m_batchSizes.insert(it.key().toInt(), it.value().toInt());
}
