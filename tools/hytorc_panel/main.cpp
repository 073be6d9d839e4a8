// hytorc-panel: shows the HYTORC device's maintenance panel as the workstation builds it.
#include "d_panel_session.h"
#include "d_signal_watcher.h"

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QQuickWindow>

#include <cstdio>

namespace {

DPanelSession::Options parseOptions(const QGuiApplication& app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Shows the maintenance panel of a HYTORC tool, linked to the tool simulator or to a serial device.");
    parser.addHelpOption();
    parser.addOptions({
        {"device", "Serial device of the tool, e.g. /dev/rfcomm0 (default: the tool simulator).", "path"},
        {"sim-arg", "Extra argument for the simulator (repeat it), e.g. --sim-arg=--silent.", "arg"},
        {"plugins", "Folder of the plug-ins (default: ../plugins beside this program).", "dir"},
        {"name", "Name of the device shown on the panel (default: HYTORC tool).", "text"},
        {"tool-info", "Press \"Get Tool Info\" once the panel is loaded."},
        {"screenshot", "Save the panel as a PNG once it has settled, then exit.", "file"},
    });
    parser.process(app);
    DPanelSession::Options options;
    options.device = parser.value("device");
    options.simulatorArguments = parser.values("sim-arg");
    options.pluginDirectory = parser.isSet("plugins")
        ? parser.value("plugins")
        : QCoreApplication::applicationDirPath() + QStringLiteral("/../plugins");
    options.name = parser.isSet("name") ? parser.value("name") : QStringLiteral("HYTORC tool");
    options.toolInfo = parser.isSet("tool-info");
    options.screenshot = parser.value("screenshot");
    return options;
}

} // namespace

int main(int argc, char* argv[])
{
    DSignalWatcher::blockTerminationSignals();
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hytorc-panel"));
    // No GPU off screen: the scene graph draws in software there.
    if (QGuiApplication::platformName() == QLatin1String("offscreen"))
        QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
    DPanelSession session(parseOptions(app));
    DSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &DSignalWatcher::sigTerminate, &app, &QCoreApplication::quit);
    QObject::connect(&session, &DPanelSession::sigFinished, &app, &QCoreApplication::exit);
    int exitCode = DPanelSession::CeExitSuccess;
    if (!session.start(&exitCode))
        return exitCode;
    return app.exec();
}
