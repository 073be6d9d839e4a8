#ifndef D_RESULT_FILTER_H
#define D_RESULT_FILTER_H

#include "d_result_journal.h"

#include <QList>
#include <QPair>

class QCommandLineParser;

// One reading of a filter on the journal's rows for every place that takes one (hytorc results,
// hytorc spc, the web page's API), so that the same words select the same rows everywhere.
class DResultFilter
{
public:
    enum EnField { CeFrom, CeTo, CeAfter, CeBefore, CeProgram, CeStatus, CeIdentifier, CeLimit };

    // Sets `field` of `query` from `text`; false with what it takes, for the caller to prefix with
    // the option's or parameter's name ("takes a program id (1 or more), not \"x\"").
    static bool set(EnField field, const QString& text, DResultJournal::DQuery* query, QString* error);
    // A command's options and the fields they set ({"from", CeFrom}, ...).
    using DOptions = QList<QPair<const char*, EnField>>;
    // Sets the fields of the options given; false with "--NAME takes ..." in *message.
    static bool fromOptions(const QCommandLineParser& parser, const DOptions& options, DResultJournal::DQuery* query,
                            QString* message);
    // ISO 8601 ("2026-11-23T08:00:00Z", "2026-11-23 08:00"); local time when no zone is given.
    static bool parseTime(const QString& text, qint64* ms);
};

#endif // D_RESULT_FILTER_H
