#ifndef D_PANEL_SESSION_H
#define D_PANEL_SESSION_H

#include "d_link_supervisor.h"
#include "d_simulator_process.h"

#include <QObject>
#include <QStringList>

#include <memory>

class DBackendHost;
class DWorkstation;
class QQmlEngine;
class QQuickItem;
class QQuickWindow;

// One run of the panel viewer: the plug-ins loaded, the tool's link open, the device's
// maintenance panel built the workstation's way and shown in a window.
class DPanelSession : public QObject
{
    Q_OBJECT
public:
    enum EnExitCode { CeExitSuccess = 0, CeExitFailed = 1, CeExitUsage = 2 };

    struct Options {
        QString pluginDirectory;
        QString device;            // empty: the tool simulator
        QStringList simulatorArguments;
        QString name;
        bool toolInfo = false;     // press "Get Tool Info" once loaded
        QString screenshot;        // save a PNG once settled, then finish
    };

    explicit DPanelSession(const Options& options, QObject* parent = nullptr);
    // The panel and its engine go before the plug-ins.
    ~DPanelSession() override;

    // Shows the panel; false with the exit code when it cannot.
    bool start(int* exitCode);
    // Failed when an instruction of the panel (the tool information) did not succeed.
    int exitCode() const { return m_failed ? CeExitFailed : CeExitSuccess; }
    QQuickItem* panel() const { return m_panel; }

public slots:
    // The program ends: no more reopening of a lost link.
    void stop();

signals:
    // The session is over (screenshot taken): the program ends with `exitCode`.
    void sigFinished(int exitCode);

private:
    bool openLink(QString* error);
    void onLinkState(DLinkSupervisor::EnLinkState state);
    void reconnect();
    void readProgramList();
    void watchInstructions();
    bool buildPanel(QString* error);
    void showWindow();
    void pressToolInfo();
    void settleThenScreenshot();
    void saveScreenshot();

    Options m_options;
    DSimulatorProcess m_simulator;
    std::unique_ptr<DWorkstation> m_station;
    std::unique_ptr<DBackendHost> m_backendHost;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QQuickWindow> m_window;
    QQuickItem* m_panel = nullptr;
    QString m_devicePath;
    DLinkSupervisor* m_link = nullptr;
    bool m_stopped = false;
    bool m_failed = false;
};

#endif // D_PANEL_SESSION_H
