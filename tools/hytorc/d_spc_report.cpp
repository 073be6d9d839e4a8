#include "d_spc_report.h"

#include "d_message_handler.h"
#include "d_postgres_connection.h"
#include "d_postgres_results.h"
#include "d_result_filter.h"
#include "d_result_record.h"
#include "d_results_export.h"
#include "d_spc.h"

#include <QCommandLineParser>
#include <QVector>

#include <cstdio>

namespace {

// A figure in the table; "—" where it is undefined, never a made-up number.
QString cell(const std::optional<double>& value, int decimals = 2)
{
    return value ? QString::number(*value, 'f', decimals) : QStringLiteral("—");
}

QString tableLine(const QStringList& cells)
{
    QStringList justified;
    for (const QString& text : cells)
        justified << text.rightJustified(9);
    return justified.join(QLatin1Char(' ')) + QLatin1Char('\n');
}

} // namespace

int DSpcReport::execute()
{
    QString message;
    DResultJournal journal;
    QMap<int, DSpc> programs;
    const bool read = m_postgres.isEmpty() ? journal.open(m_journalPath, DResultJournal::CeReader, &message)
                                                 && DSpc::fromJournal(journal, m_query, &programs, &message)
                                           : fromPostgres(&programs, &message);
    if (!read) {
        DMessageHandler::say(message);
        return CeExitFailure;
    }
    QString out = m_json ? QString() : tableLine({"program", "n", "mean", "stdev", "min", "max", "lsl", "usl", "target",
                                                  "cp", "cpk", "nok %"});
    for (const DSpc& spc : programs) {
        const DSpc::DFigures f = spc.figures();
        out += m_json ? QString::fromUtf8(spc.json(false)) + QLatin1Char('\n')
                      : tableLine({QString::number(f.program), QString::number(f.n), cell(f.mean), cell(f.stdev, 3),
                                   cell(f.min), cell(f.max), cell(f.lsl), cell(f.usl), cell(f.target), cell(f.cp),
                                   cell(f.cpk), f.nokRate ? cell(*f.nokRate * 100, 1) : cell(f.nokRate)});
    }
    std::fputs(out.toUtf8().constData(), stdout);
    return std::fflush(stdout) == 0 ? CeExitSuccess : CeExitFailure;
}

bool DSpcReport::fromPostgres(QMap<int, DSpc>* programs, QString* error) const
{
    DPostgresConnection database;
    if (!database.open(m_postgres, QString(), error)) {
        *error = QStringLiteral("postgres: ") + *error;
        return false;
    }
    if (m_query.progId > 0)
        programs->insert(m_query.progId, DSpc(m_query.progId));
    const QStringList& keys = DResultRecord::journalKeys();
    QVector<int> columns;
    for (const QString& key : DSpc::keys())
        columns << keys.indexOf(key);
    const int program = keys.indexOf(QStringLiteral("progId"));
    QVariantList values;
    DPostgresResults plant(&database);
    return plant.forEachValues({m_station, 0, m_query.fromMs, m_query.toMs, 0, m_query.progId}, [&](const QVariantList& row) {
        values.clear();
        for (int column : columns)
            values << row.at(column);
        const int progId = row.at(program).toInt();
        auto it = programs->find(progId);
        (it != programs->end() ? it : programs->insert(progId, DSpc(progId)))->add(values);
        return true;
    }, error);
}

bool DSpcReport::parse(const QStringList& arguments, QString* message, bool* helpShown)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Prints each program's torque figures (N·m) over the results hytorcd journaled: n, mean, sample standard\n"
        "deviation, min, max, the limits and target, Cp, Cpk and the NOK rate; \"—\" where a figure is undefined.\n\n"
        "  hytorc spc [--journal FILE] [--program N] [--since TIME] [--until TIME] [--format table|json]\n"
        "  hytorc spc --postgres CONNINFO [--station NAME] [the same options]"));
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
        {"journal", QStringLiteral("The journal (default: %1).").arg(DResultJournal::defaultPath()), "file"},
        {"program", "Only this program (progId); its line is printed even without results.", "id"},
        {"since", "Only results received at or after this time (ISO 8601; local time without a zone).", "time"},
        {"until", "Only results received at or before this time.", "time"},
        {"format", "table (default) or json (one object per program and line, as the web page's /api/spc).", "format"},
    });
    parser.addOptions(DResultsExport::plantOptions());
    if (!parser.parse(arguments)) {
        *message = parser.errorText() + QStringLiteral(" (try: hytorc spc --help)");
        return false;
    }
    if (parser.isSet(help)) {
        *helpShown = true;
        *message = parser.helpText();
        return false;
    }
    m_journalPath = parser.isSet("journal") ? parser.value("journal") : DResultJournal::defaultPath();
    if (!DResultsExport::readPlantSource(parser, &m_postgres, &m_station, message))
        return false;
    const DResultFilter::DOptions filters{
        {"program", DResultFilter::CeProgram}, {"since", DResultFilter::CeFrom}, {"until", DResultFilter::CeTo}};
    if (!DResultFilter::fromOptions(parser, filters, &m_query, message))
        return false;
    const QString format = parser.value("format");
    if (!format.isEmpty() && format != QLatin1String("table") && format != QLatin1String("json")) {
        *message = QStringLiteral("--format takes table or json, not \"%1\"").arg(format);
        return false;
    }
    m_json = format == QLatin1String("json");
    return parser.positionalArguments().isEmpty()
        || (*message = QStringLiteral("spc takes no other words (try: hytorc spc --help)"), false);
}
