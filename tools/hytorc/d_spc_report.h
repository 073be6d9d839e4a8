#ifndef D_SPC_REPORT_H
#define D_SPC_REPORT_H

#include "d_result_journal.h"
#include "d_subcommand.h"

#include <QMap>
#include <QStringList>

class DSpc;

// `hytorc spc`: each program's torque figures over the journal (n, mean, spread, Cp, Cpk, NOK
// rate) as a table or JSON lines, by the same code as the station's web page.
class DSpcReport : public DSubcommand
{
protected:
    bool parse(const QStringList& arguments, QString* message, bool* helpShown) override;
    int execute() override;

private:
    // The plant database's rows (one station's, or every one's) through the same figures.
    bool fromPostgres(QMap<int, DSpc>* programs, QString* error) const;

    QString m_journalPath;
    QString m_postgres;  // a libpq connection string in place of the journal
    QString m_station;
    DResultJournal::DQuery m_query;
    bool m_json = false;
};

#endif // D_SPC_REPORT_H
