#ifndef D_RESULT_RECORD_H
#define D_RESULT_RECORD_H

#include <QByteArray>
#include <QStringList>
#include <QVariantMap>

// A tightening result as the station writes it out: the event record's keys in the order
// of the tool's report, the journal's own keys before them, and one line of JSON (keys in
// that order, not sorted) or CSV per result.
class DResultRecord
{
public:
    // date, time, duration, jobId, ... eventCountNo: the listener's record.
    static const QStringList& eventKeys();
    // id, receivedAt, station, toolSerial, then the event keys: a journal row.
    static const QStringList& journalKeys();
    // The identifier parts among the journal keys (identifier, identifier2, ...), where it keeps them.
    static QStringList identifierKeys();
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

    // A journal torque (the tool's value x 100 in `unit`, N.m or ft.lb) in N·m.
    static double newtonMetres(double convertedTorque, const QString& unit);

private:
    static QVariantList valuesOf(const QVariantMap& values, const QStringList& keys);
};

#endif // D_RESULT_RECORD_H
