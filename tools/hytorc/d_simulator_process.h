#ifndef D_SIMULATOR_PROCESS_H
#define D_SIMULATOR_PROCESS_H

#include <QProcess>
#include <QStringList>

// The tool simulator as a child process: it plays the tool on a pseudo-terminal
// and says which one on its first line of output.
class DSimulatorProcess : public QObject
{
    Q_OBJECT
public:
    // `showLogs`: the simulator's own log lines go to our stderr.
    explicit DSimulatorProcess(bool showLogs, QObject* parent = nullptr);
    ~DSimulatorProcess() override;

    // Starts it and waits for the pseudo-terminal's path; false with a reason when it cannot.
    bool start(const QStringList& arguments, QString* devicePath, QString* error);
    // The simulator refused its arguments (it exits with 2 for that).
    bool refusedArguments() const;
    // The port it plays now: after a drop it reopens on a new one and prints its path.
    QString currentPath();

private:
    void onLogs();

    QProcess m_process;
    QString m_lastLog;
    QString m_path;
};

#endif // D_SIMULATOR_PROCESS_H
