#ifndef D_DESCENDANT_PROCESSES_H
#define D_DESCENDANT_PROCESSES_H

#include <QList>
#include <QSet>
#include <QStringList>

// The processes this program started, directly or through others, as /proc shows them.
// Once this program is a child subreaper, a grandchild whose parent died (`timeout`
// killed before its `bluetoothctl`) becomes our child instead of init's, so none escapes.
class DDescendantProcesses
{
public:
    struct DProcess {
        qint64 pid = 0;
        QString program;       // the name it was started as (a script's own name, not its shell's)
        QStringList arguments;
    };

    static bool becomeSubreaper();
    // Every live descendant, parents before their children; `spared` and theirs are left out.
    static QList<DProcess> list(const QSet<qint64>& spared);
    // "program arguments" of the first descendant started as one of `programs`; empty when none
    // runs. What those start in turn (a script's `sleep`, left to us when its parent was killed)
    // is not what was run.
    static QString runningProgram(const QSet<qint64>& spared, const QStringList& programs);
    // Asks every descendant but `spared` to end, kills those still there after `graceMs`,
    // and reaps the ones that had become our children. Returns how many there were.
    static int endAll(const QSet<qint64>& spared, int graceMs);
};

#endif // D_DESCENDANT_PROCESSES_H
