// hytorc-panel: shows the HYTORC device's maintenance panel as the workstation builds it.
#include "d_display_check.h"
#include "d_message_handler.h"
#include "d_panel_session.h"
#include "d_signal_watcher.h"

#include <QCommandLineParser>
#include <QGuiApplication>

#include <cstdio>

namespace {

// Read before the GUI exists, so that --help and usage errors need no display. Returns
// the exit code when the run ends here, -1 when the panel is to be shown.
int parseOptions(DPanelSession::Options* options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Shows the maintenance panel of a HYTORC tool, linked to the tool simulator or to a serial device.");
    const QCommandLineOption help = parser.addHelpOption();
    // Qt's own -platform is read by the GUI application, after us.
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOptions({
        {"platform", "Qt's display platform, e.g. offscreen (no display needed).", "name"},
        {"device", "Serial device of the tool, e.g. /dev/rfcomm0 (default: the tool simulator).", "path"},
        {"sim-arg", "Extra argument for the simulator (repeat it), e.g. --sim-arg=--silent.", "arg"},
        {"plugins", "Folder of the plug-ins (default: ../plugins beside this program).", "dir"},
        {"name", "Name of the device shown on the panel (default: HYTORC tool).", "text"},
        {"tool-info", "Press \"Get Tool Info\" once the panel is loaded; exit status 1 when it fails."},
        {"screenshot", "Save the panel as a PNG once it has settled, then exit (needs no display).", "file"},
    });
    const bool parsed = parser.parse(QCoreApplication::arguments());
    if (parsed && parser.isSet(help)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return DPanelSession::CeExitSuccess;
    }
    if (!parsed || !parser.positionalArguments().isEmpty()) {
        const QString error = parsed ? QStringLiteral("unexpected argument: %1").arg(parser.positionalArguments().first())
                                     : parser.errorText();
        std::fprintf(stderr, "hytorc-panel: %s (see --help)\n", qPrintable(error));
        return DPanelSession::CeExitUsage;
    }
    const QString noDisplay = DDisplayCheck::choosePlatform(parser.value("platform"), parser.isSet("screenshot"));
    if (!noDisplay.isEmpty()) {
        std::fprintf(stderr, "hytorc-panel: %s\n", qPrintable(noDisplay));
        return DPanelSession::CeExitUsage;
    }
    options->device = parser.value("device");
    options->simulatorArguments = parser.values("sim-arg");
    options->pluginDirectory = parser.isSet("plugins")
        ? parser.value("plugins")
        : QCoreApplication::applicationDirPath() + QStringLiteral("/../plugins");
    options->name = parser.isSet("name") ? parser.value("name") : QStringLiteral("HYTORC tool");
    options->toolInfo = parser.isSet("tool-info");
    options->screenshot = parser.value("screenshot");
    return -1;
}

} // namespace

int main(int argc, char* argv[])
{
    DSignalWatcher::blockTerminationSignals();
    DPanelSession::Options options;
    {
        QCoreApplication parsing(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("hytorc-panel"));
        const int exitCode = parseOptions(&options);
        if (exitCode >= 0)
            return exitCode;
    }
    DDisplayCheck::guardStart();
    QGuiApplication app(argc, argv);
    const QStringList held = DDisplayCheck::endGuard();
    QCoreApplication::setApplicationName(QStringLiteral("hytorc-panel"));
    DMessageHandler::install(false);
    for (const QString& line : held)
        DMessageHandler::say(line);
    DPanelSession session(options);
    DSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &DSignalWatcher::sigTerminate, &session, &DPanelSession::stop);
    QObject::connect(&signalWatcher, &DSignalWatcher::sigTerminate, &app, &QCoreApplication::quit);
    QObject::connect(&app, &QGuiApplication::lastWindowClosed, &session, &DPanelSession::stop);
    QObject::connect(&session, &DPanelSession::sigFinished, &app, &QCoreApplication::exit);
    int exitCode = DPanelSession::CeExitSuccess;
    if (!session.start(&exitCode))
        return exitCode;
    const int loopExit = app.exec();
    return loopExit != 0 ? loopExit : session.exitCode();
}
