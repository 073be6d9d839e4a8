#ifndef D_CLOSE_NAMES_H
#define D_CLOSE_NAMES_H

#include <QStringList>

// Names a user most likely meant: a typed name against the names that exist.
class DCloseNames
{
public:
    // The existing name fewest edits away from `typed` (case aside), if at most `maxEdits`; else empty.
    static QString closest(const QString& typed, const QStringList& names, int maxEdits = 2);

private:
    static int edits(const QString& a, const QString& b);
};

#endif // D_CLOSE_NAMES_H
