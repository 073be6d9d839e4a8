#ifndef D_RESULTS_EXPORT_H
#define D_RESULTS_EXPORT_H

#include "d_result_journal.h"
#include "d_subcommand.h"

// `hytorc results`: prints the journal's rows as JSON lines or CSV, then with --follow the
// rows the service commits after them. It only reads, so it never holds up the service.
class DResultsExport : public DSubcommand
{
protected:
    bool parse(const QStringList& arguments, QString* message, bool* helpShown) override;
    int execute() override;

private:
    // Writes the rows after `m_query.sinceId` and moves it past them; false on a read or write error.
    bool printNewRows(const DResultJournal& journal, QString* error);

    QString m_journalPath;
    DResultJournal::DQuery m_query;
    bool m_csv = false;
    bool m_follow = false;
};

#endif // D_RESULTS_EXPORT_H
