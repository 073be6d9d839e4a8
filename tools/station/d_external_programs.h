#ifndef D_EXTERNAL_PROGRAMS_H
#define D_EXTERNAL_PROGRAMS_H

#include <QSet>
#include <QStringList>
#include <QVariantMap>

// The system programs that the Bluetooth commands run (bluetoothctl, rfcomm, ...),
// seen from the host: whether they can run here at all, which one is stuck when a
// command does not end, and the ones a command left behind.
class DExternalPrograms
{
public:
    // A process of the host's own (the simulator) that is neither reported nor ended.
    void spare(qint64 pid);
    // Empty when the commands can run here; else one line: what is missing and what to do.
    QString missingFor(const QStringList& commands) const;
    // The line that says what to check when the system bus answers that the bluetooth service is
    // not on it; empty otherwise (a bus that does not answer is left to the programs' own timeouts).
    static QString bluetoothServiceMissing();
    // The command runs system programs: it ends by itself, within --timeout.
    static bool runsPrograms(const QString& command);
    // "program arguments" of the system program running now; empty when none.
    QString runningProgram() const;
    // "searchAndConnect: step 3 of 6, trusting the tool (bluetoothctl trust ADDRESS): up to 10 s",
    // or empty when `program` is no step of `command`.
    static QString stepOf(const QString& command, const QString& program);
    // "bluetoothctl power on did not answer in 60 s: ...", or empty when no program runs.
    QString stuckMessage(double seconds) const;
    // What to check when `command` ended by itself with a failure; empty when nothing to say.
    static QString failureHint(const QString& command, const QVariantMap& results);
    // Ends every program still running that the host did not spare.
    void endLeftovers() const;

private:
    QSet<qint64> m_spared;
};

#endif // D_EXTERNAL_PROGRAMS_H
