#include "d_result_filter.h"

#include <QCommandLineParser>
#include <QDateTime>

namespace {

bool number(const QString& text, qint64 minimum, qint64* value)
{
    bool ok = false;
    const qint64 read = text.toLongLong(&ok);
    if (ok && read >= minimum)
        *value = read;
    return ok && read >= minimum;
}

} // namespace

bool DResultFilter::parseTime(const QString& text, qint64* ms)
{
    QDateTime time = QDateTime::fromString(QString(text).replace(QLatin1Char(' '), QLatin1Char('T')), Qt::ISODateWithMs);
    if (!time.isValid())
        return false;
    *ms = time.toMSecsSinceEpoch();
    return true;
}

bool DResultFilter::set(EnField field, const QString& text, DResultJournal::DQuery* query, QString* error)
{
    qint64 progId = 0;
    switch (field) {
    case CeFrom:
    case CeTo:
        if (parseTime(text, field == CeFrom ? &query->fromMs : &query->toMs))
            return true;
        *error = QStringLiteral("takes a time as 2026-11-23T08:00:00 (Z or +01:00 for a zone), not \"%1\"").arg(text);
        return false;
    case CeAfter:
    case CeBefore:
        if (number(text, 0, field == CeAfter ? &query->sinceId : &query->beforeId))
            return true;
        *error = QStringLiteral("takes a tightening id (0 or more), not \"%1\"").arg(text);
        return false;
    case CeProgram:
        if (number(text, 1, &progId) && progId <= 999) {
            query->progId = int(progId);
            return true;
        }
        *error = QStringLiteral("takes a program id (1 to 999), not \"%1\"").arg(text);
        return false;
    case CeLimit:
        if (number(text, 1, &query->limit))
            return true;
        *error = QStringLiteral("takes a number of rows (1 or more), not \"%1\"").arg(text);
        return false;
    case CeStatus:
        query->status = text.trimmed();
        break;
    case CeIdentifier:
        query->identifier = text.trimmed();
        break;
    }
    return true;
}

bool DResultFilter::fromOptions(const QCommandLineParser& parser, const DOptions& options, DResultJournal::DQuery* query,
                                QString* message)
{
    for (const auto& [option, field] : options) {
        QString what;
        if (parser.isSet(QLatin1String(option)) && !set(field, parser.value(QLatin1String(option)), query, &what)) {
            *message = QStringLiteral("--%1 %2").arg(QLatin1String(option), what);
            return false;
        }
    }
    return true;
}
