#include "d_results_export.h"

#include "d_message_handler.h"
#include "d_postgres_connection.h"
#include "d_postgres_results.h"
#include "d_result_record.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QThread>

#include <cstdio>

namespace {

constexpr int c_followPeriodMs = 200;

// ISO 8601 ("2026-11-23T08:00:00Z", "2026-11-23 08:00"); local time when no zone is given.
bool parseTime(const QString& text, qint64* ms)
{
    QDateTime time = QDateTime::fromString(QString(text).replace(QLatin1Char(' '), QLatin1Char('T')), Qt::ISODateWithMs);
    if (!time.isValid())
        return false;
    *ms = time.toMSecsSinceEpoch();
    return true;
}

} // namespace

int DResultsExport::run(const QStringList& arguments)
{
    QString message;
    bool helpShown = false;
    if (!parse(arguments, &message, &helpShown)) {
        if (helpShown) {
            std::fputs(qPrintable(message), stdout);
            return CeExitSuccess;
        }
        DMessageHandler::say(message);
        return CeExitUsage;
    }
    DResultJournal journal;
    DPostgresConnection database;
    DPostgresResults plant(&database);
    DSource source = [&](const DResultJournal::DQuery& query, const auto& each, QString* error) {
        return journal.forEachValues(query, each, error);
    };
    if (!m_postgres.isEmpty()) {
        source = [&](const DResultJournal::DQuery& query, const auto& each, QString* error) {
            return plant.forEachValues({m_station, query.sinceId, query.fromMs, query.toMs, query.limit}, each, error);
        };
    }
    const bool opened = m_postgres.isEmpty() ? journal.open(m_journalPath, DResultJournal::CeReader, &message)
                                             : database.open(m_postgres, QString(), &message);
    if (!opened) {
        DMessageHandler::say(m_postgres.isEmpty() ? message : QStringLiteral("postgres: ") + message);
        return CeExitFailure;
    }
    if (m_csv)
        std::fputs(DResultRecord::csvHeader(DResultRecord::journalKeys()).append('\n').constData(), stdout);
    do {
        if (!printNewRows(source, &message)) {
            DMessageHandler::say(message);
            return CeExitFailure;
        }
        if (m_follow)
            QThread::msleep(c_followPeriodMs);
    } while (m_follow);
    return CeExitSuccess;
}

bool DResultsExport::parse(const QStringList& arguments, QString* message, bool* helpShown)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Prints the results that hytorcd journaled, one JSON object per line or CSV with a header row.\n\n"
        "  hytorc results [--journal FILE] [--since ID] [--from TIME] [--to TIME] [--format jsonl|csv] [--follow]\n"
        "  hytorc results --postgres CONNINFO [--station NAME] [--since ID] [--from TIME] [--to TIME] [--format jsonl|csv]"));
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
        {"journal", QStringLiteral("The journal (default: %1).").arg(DResultJournal::defaultPath()), "file"},
        {"since", "Only results with a tightening id above this one.", "id"},
        {"from", "Only results received at or after this time (ISO 8601; local time without a zone).", "time"},
        {"to", "Only results received at or before this time.", "time"},
        {"format", "jsonl (default) or csv.", "format"},
        {"follow", "Keep printing new results as the service commits them, until interrupted."},
        {"postgres", "The plant database that hytorc-collector fills, in place of the journal (libpq's connection "
                     "string; the password from PGPASSFILE).", "conninfo"},
        {"station", "With --postgres: only this station's results.", "name"},
    });
    if (!parser.parse(arguments)) {
        *message = parser.errorText() + QStringLiteral(" (try: hytorc results --help)");
        return false;
    }
    if (parser.isSet(help)) {
        *helpShown = true;
        *message = parser.helpText();
        return false;
    }
    m_journalPath = parser.isSet("journal") ? parser.value("journal") : DResultJournal::defaultPath();
    m_postgres = parser.value("postgres");
    m_station = parser.value("station");
    if (!checkSource(parser, message))
        return false;
    bool ok = true;
    if (parser.isSet("since"))
        m_query.sinceId = parser.value("since").toLongLong(&ok);
    if (!ok || m_query.sinceId < 0) {
        *message = QStringLiteral("--since takes a tightening id (0 or more), not \"%1\"").arg(parser.value("since"));
        return false;
    }
    for (const char* bound : {"from", "to"}) {
        if (parser.isSet(bound) && !parseTime(parser.value(bound), bound[0] == 'f' ? &m_query.fromMs : &m_query.toMs)) {
            *message = QStringLiteral("--%1 takes a time as 2026-11-23T08:00:00 (Z or +01:00 for a zone), not \"%2\"")
                           .arg(QLatin1String(bound), parser.value(bound));
            return false;
        }
    }
    const QString format = parser.value("format");
    if (!format.isEmpty() && format != QLatin1String("jsonl") && format != QLatin1String("csv")) {
        *message = QStringLiteral("--format takes jsonl or csv, not \"%1\"").arg(format);
        return false;
    }
    m_csv = format == QLatin1String("csv");
    m_follow = parser.isSet("follow");
    // The word "results" stands where the parser expects the program.
    return parser.positionalArguments().isEmpty()
        || (*message = QStringLiteral("results takes no other words (try: hytorc results --help)"), false);
}

// --postgres stands for --journal; the database has no --follow (its rows come from many stations).
bool DResultsExport::checkSource(const QCommandLineParser& parser, QString* message)
{
    if (!parser.isSet("postgres"))
        return !parser.isSet("station") || (*message = QStringLiteral("--station goes with --postgres"), false);
    if (parser.isSet("journal") || parser.isSet("follow")) {
        *message = QStringLiteral("--postgres reads the plant database in place of --journal, without --follow");
        return false;
    }
    return DPostgresConnection::checkConnInfo(m_postgres, message);
}

bool DResultsExport::printNewRows(const DSource& source, QString* error)
{
    bool written = true;
    const QStringList& keys = DResultRecord::journalKeys();
    const bool read = source(m_query, [&](const QVariantList& row) {
               const QByteArray line = (m_csv ? DResultRecord::csvLine(row) : DResultRecord::jsonLine(row, keys)) + '\n';
               written = std::fwrite(line.constData(), 1, size_t(line.size()), stdout) == size_t(line.size());
               m_query.sinceId = row.first().toLongLong();
               return written;
           }, error);
    if (read && (!written || std::fflush(stdout) != 0)) {
        *error = QStringLiteral("cannot write the results: standard output is closed or full");
        return false;
    }
    return read;
}
