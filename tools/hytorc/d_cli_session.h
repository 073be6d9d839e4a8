#ifndef D_CLI_SESSION_H
#define D_CLI_SESSION_H

#include "d_argument_converter.h"
#include "d_command_line.h"
#include "d_result_recorder.h"
#include "d_external_programs.h"

#include <QObject>

#include <functional>

class DAbstractPlugin;
class DCommandRunner;
class DLinkSupervisor;
class DSignalWatcher;
class DSimulatorProcess;
class DWorkstation;

// One run of the command-line host: load the plug-ins, open the tool's link,
// run the orders in sequence and print their results.
class DCliSession : public QObject
{
    Q_OBJECT
public:
    enum EnExitCode { CeExitSuccess = 0, CeExitCommandFailed = 1, CeExitUsage = 2 };

    explicit DCliSession(const DCommandLine& commandLine, QObject* parent = nullptr);
    ~DCliSession() override;

    int run();

private:
    bool setUp(QString* error);
    bool prepareOrders(QList<DArgumentConverter::DOrderArguments>* orders, QString* error) const;
    bool startSimulator(DSimulatorProcess* simulator, QString* path, int* status);
    bool runSequence(const QList<DArgumentConverter::DOrderArguments>& prepared);
    bool runOrder(const DCommandLine::Order& order, const DArgumentConverter::DOrderArguments& prepared);
    bool awaitLink(const QString& listener, const bool& stopping);
    void sayFailure(const QString& name, const DArgumentConverter::DOrderArguments& prepared, const QString& reason);
    bool showsProgress() const;
    void listCommands();
    void print(const QVariantMap& object, bool oneLine = false);
    void recordResult(const QVariantMap& changed);
    void endRun();
    void onTerminate();

    DCommandLine m_commandLine;
    DExternalPrograms m_programs;
    DResultRecorder m_results;
    DWorkstation* m_station = nullptr;
    DCommandRunner* m_runner = nullptr;
    DAbstractPlugin* m_device = nullptr;
    DAbstractPlugin* m_driver = nullptr;
    DLinkSupervisor* m_link = nullptr;
    DSignalWatcher* m_signals = nullptr;
    // Ends the command now running, the host's way; empty between commands.
    std::function<void()> m_stopCurrent;
    bool m_interrupted = false;
    bool m_outputFailed = false;  // stdout or --output refused a line: the run ends
    bool m_stdoutFailed = false;
    bool m_listRead = false;      // a listProgram succeeded in this run
};

#endif // D_CLI_SESSION_H
