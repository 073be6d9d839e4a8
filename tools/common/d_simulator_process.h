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

private:
    void onLogs();

    QProcess m_process;
    QString m_lastLog;
};

#endif // D_SIMULATOR_PROCESS_H
