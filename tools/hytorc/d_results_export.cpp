#include "d_results_export.h"

#include "d_message_handler.h"
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

int DResultsExport::execute()
{
    QString message;
    DResultJournal journal;
    if (!journal.open(m_journalPath, DResultJournal::CeReader, &message)) {
        DMessageHandler::say(message);
        return CeExitFailure;
    }
    if (m_csv)
        std::fputs(DResultRecord::csvHeader(DResultRecord::journalKeys()).append('\n').constData(), stdout);
    do {
        if (!printNewRows(journal, &message)) {
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
        "  hytorc results [--journal FILE] [--since ID] [--from TIME] [--to TIME] [--identifier VALUE]\n"
        "                 [--format jsonl|csv] [--follow]"));
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
        {"journal", QStringLiteral("The journal (default: %1).").arg(DResultJournal::defaultPath()), "file"},
        {"since", "Only results with a tightening id above this one.", "id"},
        {"from", "Only results received at or after this time (ISO 8601; local time without a zone).", "time"},
        {"to", "Only results received at or before this time.", "time"},
        {"identifier", "Only results with this identifier, in any of its 4 parts.", "value"},
        {"format", "jsonl (default) or csv.", "format"},
        {"follow", "Keep printing new results as the service commits them, until interrupted."},
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
    m_query.identifier = parser.value("identifier");
    if (parser.isSet("identifier") && m_query.identifier.isEmpty()) {
        *message = QStringLiteral("--identifier takes a value (an identifier of any part)");
        return false;
    }
    // The word "results" stands where the parser expects the program.
    return parser.positionalArguments().isEmpty()
        || (*message = QStringLiteral("results takes no other words (try: hytorc results --help)"), false);
}

bool DResultsExport::printNewRows(const DResultJournal& journal, QString* error)
{
    bool written = true;
    const QStringList& keys = DResultRecord::journalKeys();
    const bool read = journal.forEachValues(m_query, [&](const QVariantList& row) {
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
