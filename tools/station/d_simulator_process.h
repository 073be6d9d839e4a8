#ifndef D_SIMULATOR_PROCESS_H
#define D_SIMULATOR_PROCESS_H

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// The tool simulator as a child process: it plays the tool on a pseudo-terminal, reached
// through a symlink of ours that it moves to its new port after a drop, and removes
// while it has none (so that a stale path never reaches another program's terminal).
class DSimulatorProcess : public QObject
{
    Q_OBJECT
public:
    // `showLogs`: the simulator's own log lines go to our stderr.
    explicit DSimulatorProcess(bool showLogs, QObject* parent = nullptr);
    ~DSimulatorProcess() override;

    // Starts it and waits for its port; *devicePath is the symlink. False with a reason when it cannot.
    bool start(const QStringList& arguments, QString* devicePath, QString* error);
    // The simulator refused its arguments (it exits with 2 for that).
    bool refusedArguments() const;
    qint64 processId() const { return m_process.processId(); }

private:
    void onLogs();

    QProcess m_process;
    QString m_lastLog;
    QTemporaryDir m_linkDir;
};

#endif // D_SIMULATOR_PROCESS_H
