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

#endif // PROCESS_END_H
