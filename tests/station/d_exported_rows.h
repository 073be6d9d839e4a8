#ifndef D_EXPORTED_ROWS_H
#define D_EXPORTED_ROWS_H

#include "d_hytorc_process.h"

// The journal's rows through `hytorc results`, as a user reads them.
inline QList<QJsonObject> exported(const QString& journal, const QStringList& options = {})
{
    DTimedHytorc results(QStringList{"results", "--journal", journal} + options);
    results.waitForEnd(30000);
    QList<QJsonObject> rows;
    for (const DTimedHytorc::Line& line : results.out)
        rows << QJsonDocument::fromJson(line.text).object();
    return rows;
}

#endif // D_EXPORTED_ROWS_H
