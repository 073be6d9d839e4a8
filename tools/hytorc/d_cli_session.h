#ifndef D_CLI_SESSION_H
#define D_CLI_SESSION_H

#include "d_command_line.h"
#include "d_result_recorder.h"
#include "d_external_programs.h"

#include <QObject>
#include <QTextStream>

#include <functional>

class DAbstractPlugin;
class DCommandRunner;
class DLinkSupervisor;
class DSignalWatcher;
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
    bool prepareOrders(QList<QVariantMap>* arguments, QString* error) const;
    bool runOrder(const DCommandLine::Order& order, const QVariantMap& arguments);
    bool awaitLink(const QString& listener, const bool& stopping);
    void listCommands();
    void print(const QVariantMap& object, bool oneLine = false);
    void recordResult(const QVariantMap& changed);
    void onTerminate();

    DCommandLine m_commandLine;
    DExternalPrograms m_programs;
    QTextStream m_out;
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
};

#endif // D_CLI_SESSION_H
