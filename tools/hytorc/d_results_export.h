#ifndef D_RESULTS_EXPORT_H
#define D_RESULTS_EXPORT_H

#include "d_result_journal.h"
#include "d_subcommand.h"

#include <functional>

class QCommandLineOption;
class QCommandLineParser;

// `hytorc results`: prints the journal's rows as JSON lines or CSV, then with --follow the
// rows the service commits after them; or, with --postgres, the plant database's rows, the same
// way. It only reads, so it never holds up the service.
class DResultsExport : public DSubcommand
{
public:
    // --postgres CONNINFO, in place of --journal, and --station, which goes with it.
    static QList<QCommandLineOption> plantOptions();
    // Their values once parsed; false with one line.
    static bool readPlantSource(const QCommandLineParser& parser, QString* postgres, QString* station, QString* message);

protected:
    bool parse(const QStringList& arguments, QString* message, bool* helpShown) override;
    int execute() override;

private:
    // Rows of a query in the order of DResultRecord::journalKeys(): the journal's, or the plant database's.
    using DSource = std::function<bool(const DResultJournal::DQuery&, const std::function<bool(const QVariantList&)>&, QString*)>;

    // Writes the rows after `m_query.sinceId` and moves it past them; false on a read or write error.
    bool printNewRows(const DSource& source, QString* error);

    QString m_journalPath;
    QString m_postgres;  // a libpq connection string in place of the journal
    QString m_station;
    DResultJournal::DQuery m_query;
    bool m_csv = false;
    bool m_follow = false;
};

#endif // D_RESULTS_EXPORT_H
