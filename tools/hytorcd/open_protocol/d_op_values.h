#ifndef D_OP_VALUES_H
#define D_OP_VALUES_H

#include <QDateTime>
#include <QString>
#include <QVariantMap>

#include <optional>

// The station's values in Open Protocol's units: torques in N·m x 100 with the 2 decimals
// truncated, angles in whole degrees, time stamps as YYYY-MM-DD:HH:MM:SS (Open Protocol
// R2.8.0, p.134-135).
class DOpValues
{
public:
    static constexpr int c_nameWidth = 25;
    static constexpr int c_timestampWidth = 19;

    // `map`'s value of `key` as text, trimmed.
    static QString text(const QVariantMap& map, const char* key);
    // `map`'s value of `key` as a number, none when absent or empty.
    static std::optional<double> number(const QVariantMap& map, const char* key);

    // A torque of `unit` (the tool's word: "NM", "FTLB", "ft.lb" ...); a unit other than ft·lb is N·m.
    static qint64 newtonMetreHundredths(double torque, const QString& unit);
    static std::optional<qint64> newtonMetreHundredths(std::optional<double> newtonMetres);
    static std::optional<qint64> degrees(std::optional<double> angle);
    // "low", "ok", "high" as 0, 1, 2; none for anything else.
    static std::optional<qint64> status(const QString& word);

    // The tool's own date (and time), local like the tool's clock; blanks when it is no date we know.
    static QString timestamp(const QString& date, const QString& time);
    static QString timestamp(const QDateTime& when);
};

#endif // D_OP_VALUES_H
