#ifndef D_STATION_PART_H
#define D_STATION_PART_H

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

class DResultJournal;

// The part at the station: the identifiers current now (stamped on every result), the program
// settings results are judged by, and the batch of the active program. Every source of an
// identifier (Open Protocol, the scanner, a person at the station) ends here.
class DStationPart : public QObject
{
    Q_OBJECT
public:
    static constexpr int c_identifierParts = 4;
    static constexpr int c_identifierWidth = 25;
    static constexpr int c_maxBatchSize = 99;
    enum EnBatchStatus { CeBatchNotCompleted = 0, CeBatchCompletedOk = 1, CeBatchNotUsed = 2 };

    // One program's settings; a limit not set is unknown.
    struct DProgramSettings {
        std::optional<double> torqueMin;  // N·m
        std::optional<double> torqueMax;
        std::optional<double> angleMin;   // degrees
        std::optional<double> angleMax;
        int batchSize = 0;                // 0: no batch
    };

    // The part, program and batch counter of the journal's last result are current again: a
    // restart neither forgets the part on the station nor starts its batch afresh.
    DStationPart(DResultJournal* journal, const QString& station, QObject* parent = nullptr);

    // The settings file's programs, by id (1-based, as listProgram numbers them).
    void setProgramSettings(const QHash<int, DProgramSettings>& programs);
    DProgramSettings programSettings(int progId) const;
    // The tool's status words that mean a good tightening (Open Protocol's op-good-status).
    void setGoodStatus(const QStringList& words) { m_goodStatus = words; }
    // With error-proofing, a done batch holds the tool locked until the next identifier.
    void setLockAtBatchDone(bool enabled);

    // Makes `value` identifier part `part` (1 to 4) current; false with one line when it cannot be one.
    bool identify(int part, const QString& value, const QString& source, QString* error);
    QString identifier(int part) const;
    QStringList identifiers() const;

    void setActiveProgram(int progId);
    int activeProgram() const { return m_activeProgram; }
    // A batch size set at run time for a program; false with one line for a size out of 1..99.
    bool setBatchSize(int progId, int size, QString* error);
    void resetBatch(const QString& why);
    int batchSize() const;
    int batchCounter() const { return m_batchCounter; }
    EnBatchStatus batchStatus() const;
    // Whether the tool is held locked because the batch is done (the relay "lock at batch done").
    bool isLockedAtBatchDone() const { return m_lockedAtBatchDone; }

    // Adds to a result's record (before the journal takes it) the identifiers current now, the
    // program's limits, the statuses judged by them and the batch it counted in.
    void stamp(QVariantMap* record);
    // One line on stderr and one row of the journal's events, so an auditor sees what happened and why.
    void recordEvent(const QString& kind, const QString& text);

signals:
    void sigIdentifiersChanged();
    void sigBatchChanged();
    void sigLockAtBatchDoneChanged(bool locked);

private:
    void countInBatch(bool good, QVariantMap* record);
    void updateLockAtBatchDone();
    void loadBatchSizes();
    void restoreFromLastResult();

    DResultJournal* m_journal;
    QString m_station;
    QHash<int, DProgramSettings> m_programs;
    QHash<int, int> m_batchSizes;
    QStringList m_identifiers;
    QStringList m_goodStatus{QStringLiteral("PASSED"), QStringLiteral("OK")};
    int m_activeProgram = 0;
    int m_batchCounter = 0;
    bool m_lockAtBatchDone = false;
    bool m_lockedAtBatchDone = false;
};

#endif // D_STATION_PART_H
