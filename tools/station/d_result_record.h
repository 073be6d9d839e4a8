#ifndef D_RESULT_RECORD_H
#define D_RESULT_RECORD_H

#include <QByteArray>
#include <QStringList>
#include <QVariantMap>

#include <optional>

// A tightening result as the station writes it out: the event record's keys in the order
// of the tool's report, the journal's own keys before them, and one line of JSON (keys in
// that order, not sorted) or CSV per result.
class DResultRecord
{
public:
    // date, time, duration, jobId, ... eventCountNo: the listener's record.
    static const QStringList& eventKeys();
    // What the station stamps on a result from the part at the station: identifier ... angleStatus.
    static const QStringList& partKeys();
    // id, receivedAt, station, toolSerial, the event keys, then the part keys: a journal row.
    static const QStringList& journalKeys();
    // The identifier parts among the journal keys (identifier, identifier2, ...), where it keeps them.
    static QStringList identifierKeys();
    static constexpr double c_newtonMetresPerFootPound = 1.3558179483;
    // N·m per unit of the tool's torque word (N.m, ft.lb), none for a unit we do not know.
    static std::optional<double> newtonMetresPer(const QString& unit);
    // The result's torque in N·m (the journal keeps the tool's value x 100), when its unit is one we know.
    static std::optional<double> newtonMetres(const QVariantMap& record);
    // The event keys whose values are whole numbers.
    static bool isNumeric(const QString& key);

    // {"key":value,...} for `keys` in order; a key missing from `values` is left out.
    static QByteArray jsonLine(const QVariantMap& values, const QStringList& keys);
    // The same from the values of `keys` in order (an invalid value is left out): an export's fast road.
    static QByteArray jsonLine(const QVariantList& values, const QStringList& keys);
    // The values of `keys` in order, quoted where CSV needs it.
    static QByteArray csvLine(const QVariantMap& values, const QStringList& keys);
    static QByteArray csvLine(const QVariantList& values);
    // The header row: the keys themselves.
    static QByteArray csvHeader(const QStringList& keys);
    // One journal row (journalKeys() order) as an export writes it: a JSON or CSV line with its newline.
    static QByteArray exportLine(const QVariantList& row, bool csv);


private:
    static QVariantList valuesOf(const QVariantMap& values, const QStringList& keys);
};

#endif // D_RESULT_RECORD_H
