#ifndef UTILITIES_H
#define UTILITIES_H

#include <QChar>
#include <QString>
#include <QVariantMap>

// Packs a dotted version text into one number: up to four parts, each a number
// from 0 to 65535 kept in 16 bits, the first part in the most significant bits
// ("1.0" gives 0x0001000000000000, "1.2.3.4" gives 0x0001000200030004).
// Malformed text (empty, an empty or non-numeric part, a part above 65535, more
// than four parts) gives 0 and sets *ok to false; ok may be null.
quint64 versionFromString(const QString& text, bool* ok, QChar separator);

// One readable line for a map, for debug traces: {key: value, key: value}.
// Nested maps and lists are written the same way, bytes as hexadecimal.
QString convVariantMapToString(const QVariantMap& map);

// Local date and time for log lines and time stamps: "yyyy-MM-dd hh:mm:ss.zzz".
QString getDate();

#endif // UTILITIES_H
