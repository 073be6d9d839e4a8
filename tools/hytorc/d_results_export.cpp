#include "d_results_export.h"

#include "d_message_handler.h"
#include "d_postgres_connection.h"
#include "d_postgres_results.h"
#include "d_result_filter.h"
#include "d_result_record.h"

#include <QCommandLineParser>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr int c_followPeriodMs = 200;

// A reader that went away (hytorc results --follow | head -n 3) shows on the pipe itself,
// so a follower with nothing new to write still ends with it.
bool outputClosed()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

} // namespace

int DResultsExport::execute()
{
    QString message;
    DResultJournal journal;
    DPostgresConnection database;
    DPostgresResults plant(&database);
    DSource source = [&](const DResultJournal::DQuery& query, const auto& each, QString* error) {
        return journal.forEachValues(query, each, error);
    };
    if (!m_postgres.isEmpty()) {
        source = [&](const DResultJournal::DQuery& query, const auto& each, QString* error) {
            return plant.forEachValues({m_station, query.sinceId, query.fromMs, query.toMs, query.limit, query.progId,
                                        query.status, query.identifier}, each, error);
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
        if (m_follow && outputClosed()) {
            std::raise(SIGPIPE);  // the end a write would have met
            return CeExitFailure;
        }
    } while (m_follow);
    return CeExitSuccess;
}

bool DResultsExport::parse(const QStringList& arguments, QString* message, bool* helpShown)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Prints the results that hytorcd journaled, one JSON object per line or CSV with a header row.\n\n"
        "  hytorc results [--journal FILE] [--since ID] [--from TIME] [--to TIME] [--program N] [--status WORD]\n"
        "                 [--identifier TEXT] [--format jsonl|csv] [--follow]\n"
        "  hytorc results --postgres CONNINFO [--station NAME] [the same filters] [--format jsonl|csv]"));
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
        {"journal", QStringLiteral("The journal (default: %1).").arg(DResultJournal::defaultPath()), "file"},
        {"since", "Only results with a tightening id above this one.", "id"},
        {"from", "Only results received at or after this time (ISO 8601; local time without a zone).", "time"},
        {"to", "Only results received at or before this time.", "time"},
        {"program", "Only results of this program (progId).", "id"},
        {"status", "Only results of this status (PASSED, FAILED, ...; case ignored).", "word"},
        {"identifier", "Only results of this part: any of its identifiers.", "text"},
        {"format", "jsonl (default) or csv.", "format"},
        {"follow", "Keep printing new results as the service commits them, until interrupted."},
    });
    parser.addOptions(plantOptions());
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
    if (!readPlantSource(parser, &m_postgres, &m_station, message))
        return false;
    if (parser.isSet("postgres") && parser.isSet("follow")) {
        *message = QStringLiteral("--postgres has no --follow: its rows come from many stations");
        return false;
    }
    const DResultFilter::DOptions filters{
        {"since", DResultFilter::CeAfter},    {"from", DResultFilter::CeFrom},     {"to", DResultFilter::CeTo},
        {"program", DResultFilter::CeProgram}, {"status", DResultFilter::CeStatus}, {"identifier", DResultFilter::CeIdentifier}};
    if (!DResultFilter::fromOptions(parser, filters, &m_query, message))
        return false;
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

QList<QCommandLineOption> DResultsExport::plantOptions()
{
    return {{"postgres", "The plant database that hytorc-collector fills, in place of the journal (libpq's connection "
                         "string; the password from PGPASSFILE).", "conninfo"},
            {"station", "With --postgres: only this station's results.", "name"}};
}

bool DResultsExport::readPlantSource(const QCommandLineParser& parser, QString* postgres, QString* station,
                                     QString* message)
{
    *postgres = parser.value("postgres");
    *station = parser.value("station");
    if (!parser.isSet("postgres"))
        return !parser.isSet("station") || (*message = QStringLiteral("--station goes with --postgres"), false);
    if (parser.isSet("journal")) {
        *message = QStringLiteral("--postgres reads the plant database in place of --journal: give one");
        return false;
    }
    return DPostgresConnection::checkConnInfo(parser.value("postgres"), message);
}

bool DResultsExport::printNewRows(const DSource& source, QString* error)
{
    bool written = true;
    const bool read = source(m_query, [&](const QVariantList& row) {
               const QByteArray line = DResultRecord::exportLine(row, m_csv);
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
