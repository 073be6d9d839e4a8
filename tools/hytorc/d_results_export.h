#ifndef D_RESULTS_EXPORT_H
#define D_RESULTS_EXPORT_H

#include "d_result_journal.h"

#include <QStringList>

// `hytorc results`: prints the journal's rows as JSON lines or CSV, then with --follow the
// rows the service commits after them. It only reads, so it never holds up the service.
class DResultsExport
{
public:
    enum EnExitCode { CeExitSuccess = 0, CeExitFailure = 1, CeExitUsage = 2 };

    // `arguments` from the word "results" on.
    int run(const QStringList& arguments);

private:
    bool parse(const QStringList& arguments, QString* message, bool* helpShown);
    // Writes the rows after `m_query.sinceId` and moves it past them; false on a read or write error.
    bool printNewRows(const DResultJournal& journal, QString* error);

    QString m_journalPath;
    DResultJournal::DQuery m_query;
    bool m_csv = false;
    bool m_follow = false;
};

#endif // D_RESULTS_EXPORT_H
