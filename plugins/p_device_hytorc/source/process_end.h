#ifndef PROCESS_END_H
#define PROCESS_END_H

#include <QProcess>

// Calls receiver->onEnd(exitCode, exitStatus) when `process` ends. A program that cannot
// even start never reports "finished": it ends the same way, as a crash.
template <class TReceiver>
void connectProcessEnd(QProcess* process, TReceiver* receiver, void (TReceiver::*onEnd)(int, QProcess::ExitStatus))
{
    qRegisterMetaType<QProcess::ExitStatus>("QProcess::ExitStatus");
    QObject::connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), receiver, onEnd);
    QObject::connect(process, &QProcess::errorOccurred, receiver, [receiver, onEnd](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            (receiver->*onEnd)(-1, QProcess::CrashExit);
    });
}

// Kills `process` if it still runs and waits up to `waitMs` for it, so that it is reaped before
// its object goes: a process object destroyed while its program runs warns on stderr.
inline void endProcess(QProcess* process, int waitMs)
{
    if (!process || process->state() == QProcess::NotRunning)
        return;
    process->kill();
    process->waitForFinished(waitMs);
}

#endif // PROCESS_END_H
