#ifndef D_OP_RESULT_LAYOUTS_H
#define D_OP_RESULT_LAYOUTS_H

#include "d_op_settings.h"

#include <QByteArray>
#include <QDateTime>
#include <QStringList>
#include <QVariantMap>

#include <optional>

class DOpFields;

// One tightening result in the layouts of 0061 and 0065, revisions 1 to 7 (Open Protocol
// R2.8.0, p.134-142 and p.147-152), from its journal row, the program of the tool's list it
// was tightened with, and when the program was last selected. A value without a source is
// spaces; the batch status, with a "not used" value of its own, is 2 then.
class DOpResultLayouts
{
public:
    static constexpr int c_revisions = 7;

    // `program`: empty when unknown; `lastChange`: invalid when unknown.
    DOpResultLayouts(const DOpSettings& settings, const QVariantMap& row, const QVariantMap& program,
                     const QDateTime& lastChange);

    QByteArray lastResult(int revision) const;  // 0061
    QByteArray oldResult(int revision) const;   // 0065

private:
    QByteArray lastResultRevision1() const;
    QByteArray oldResultRevision1() const;
    void appendRevision2Statuses(DOpFields* fields, int firstId) const;
    static void appendBlanks(DOpFields* fields, int firstId, const QList<int>& widths);
    void appendUnitAndType(DOpFields* fields, int firstId) const;
    void appendIdentifiers(DOpFields* fields, int firstId) const;

    DOpSettings m_settings;
    QVariantMap m_row;
    qint64 m_id;
    int m_progId;
    bool m_good;
    std::optional<qint64> m_torque;
    std::optional<qint64> m_target;
    std::optional<qint64> m_angleTarget;
    std::optional<qint64> m_torqueMin, m_torqueMax, m_angleMin, m_angleMax;
    std::optional<qint64> m_torqueStatus, m_angleStatus;
    std::optional<qint64> m_batchSize, m_batchCounter;
    qint64 m_batchStatus;
    QStringList m_identifiers;
    QString m_programName;
    QString m_timestamp;
    QString m_lastChange;
};

#endif // D_OP_RESULT_LAYOUTS_H
