// hytorc-sim: a cordless HYTORC tool on a pseudo-terminal, for running and testing
// the host chain without the tool.
#include "d_signal_watcher.h"
#include "d_sim_options.h"
#include "d_stdin_commands.h"
#include "d_tool_simulator.h"
#include "d_tool_state.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

// The kernel ends us (SIGTERM: the normal clean-up) when our parent dies, even by kill -9.
// A parent that died before we asked is no longer our parent: we end at once.
bool endWithParent(const DSimOptions& options)
{
    if (options.parentPid == 0)
        return true;
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() == options.parentPid)
        return true;
    if (options.removeLinkFolder)
        QDir().rmdir(QFileInfo(options.linkPath).absolutePath());
    return false;
}

} // namespace

int main(int argc, char* argv[])
{
    DSignalWatcher::blockTerminationSignals();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hytorc-sim"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0"));
    qSetMessagePattern(QStringLiteral("hytorc-sim: %{message}"));

    DSimOptions options;
    QString error;
    if (!options.parse(app, &error)) {
        qCritical("%s", qPrintable(error));
        return 2;
    }
    if (!endWithParent(options))
        return 1;
    DToolState state;
    if (!options.statePath.isEmpty() && !state.loadJson(options.statePath, &error)) {
        qCritical("%s", qPrintable(error));
        return 2;
    }
    DToolSimulator simulator(options, &state);
    if (!simulator.start(&error)) {
        qCritical("%s", qPrintable(error));
        return 1;
    }
    if (!simulator.scanner()->start(options.scannerLinkPath, &error)) {
        qCritical("%s", qPrintable(error));
        return 1;
    }
    DStdinCommands commands;
    QObject::connect(&commands, &DStdinCommands::sigCommand, &simulator, &DToolSimulator::onCommand);
    QObject::connect(&commands, &DStdinCommands::sigScan, simulator.scanner(), &DScannerPort::scan);
    DSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &DSignalWatcher::sigTerminate, &app, &QCoreApplication::quit);
    const int status = app.exec();
    if (!simulator.writeRecord(&error)) {
        qCritical("%s", qPrintable(error));
        return 1;
    }
    return status;
}
