#ifndef D_OP_LAYOUTS_H
#define D_OP_LAYOUTS_H

#include <QByteArray>
#include <QDateTime>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

// The data of the MIDs we send, from the station's own records: a journal row, a program of
// the tool's list (listProgram's map), the tool's identity (getToolInfo's map). Fields with no
// source are zeros or blanks; the README's field table says which.
class DOpLayouts
{
public:
    struct DSettings {
        int cell = 1;
        int channel = 1;
        QString station;
        QStringList goodStatus;  // the tool's status words for a good tightening
    };

    explicit DOpLayouts(const DSettings& settings);

    QByteArray communicationStart() const;                                          // 0002
    static QByteArray programIds(const QVariantList& programs);                     // 0011
    static QByteArray programData(const QVariantMap& program);                      // 0013
    static QByteArray programSelected(int progId, const QDateTime& when);           // 0015
    QByteArray toolData(const QVariantMap& toolInfo) const;                         // 0041
    // `program`: the row's program as the list holds it (empty when unknown); `lastChange`:
    // when the program was last selected, invalid when unknown.
    QByteArray lastResult(const QVariantMap& row, const QVariantMap& program, const QDateTime& lastChange) const;  // 0061
    QByteArray oldResult(const QVariantMap& row) const;                             // 0065

    // A torque of `unit` (the tool's word: "NM", "FTLB", "ft.lb" ...) in N·m x 100, to the
    // nearest hundredth; a unit other than ft·lb is taken as N·m.
    static qint64 newtonMetreHundredths(double torque, const QString& unit);

private:
    bool isGood(const QVariantMap& row) const;
    static qint64 rowTorque(const QVariantMap& row);
    static QString timestamp(const QString& date, const QString& time);
    static QString timestamp(const QDateTime& when);

    DSettings m_settings;
};

#endif // D_OP_LAYOUTS_H
