#include "d_close_names.h"

#include <QVector>

#include <algorithm>

QString DCloseNames::closest(const QString& typed, const QStringList& names, int maxEdits)
{
    QString best;
    int fewest = maxEdits + 1;
    for (const QString& name : names) {
        const int count = edits(typed.toLower(), name.toLower());
        if (count < fewest) {
            fewest = count;
            best = name;
        }
    }
    return best;
}

// Levenshtein distance, one row at a time.
int DCloseNames::edits(const QString& a, const QString& b)
{
    QVector<int> row(b.size() + 1);
    for (int j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (int i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            const int above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}
