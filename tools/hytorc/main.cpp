// hytorc: the command-line workstation for the HYTORC device plug-in.
#include "d_cli_session.h"
#include "d_command_line.h"
#include "d_message_handler.h"
#include "d_results_export.h"
#include "d_spc_report.h"
#include "d_descendant_processes.h"
#include "d_identify_command.h"
#include "d_signal_watcher.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstring>

int main(int argc, char* argv[])
{
    // The journal's export reads and prints only: a closed pipe or Ctrl-C simply ends it.
    const bool results = argc > 1 && std::strcmp(argv[1], "results") == 0;
    const bool spc = argc > 1 && std::strcmp(argv[1], "spc") == 0;
    const bool identify = argc > 1 && std::strcmp(argv[1], "identify") == 0;
    if (!results && !spc && !identify)
        DSignalWatcher::blockTerminationSignals();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hytorc"));
    QCoreApplication::setApplicationVersion(QStringLiteral(HYTORC_VERSION));
    if (results)
        return DResultsExport().run(QCoreApplication::arguments().mid(1));
    if (spc)
        return DSpcReport().run(QCoreApplication::arguments().mid(1));
    if (identify)
        return DIdentifyCommand().run(QCoreApplication::arguments().mid(1));
    DCommandLine commandLine;
    QString message;
    if (!commandLine.parse(QCoreApplication::arguments(), &message)) {
        if (commandLine.helpShown) {
            std::fprintf(stdout, "%s", qPrintable(message));
            return DCliSession::CeExitSuccess;
        }
        DMessageHandler::say(message);
        return DCliSession::CeExitUsage;
    }
    DMessageHandler::install(commandLine.verbose);
    // No program that a command started (bluetoothctl under `timeout`) outlives us.
    DDescendantProcesses::becomeSubreaper();
    int status = DCliSession::CeExitSuccess;
    {
        DCliSession session(commandLine);
        status = session.run();
    }
    DDescendantProcesses::endAll({}, 1000);
    return status;
}
