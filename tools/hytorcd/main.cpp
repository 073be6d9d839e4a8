// hytorcd: the station service that keeps a HYTORC tool connected and journals its results.
#include "d_descendant_processes.h"
#include "d_signal_watcher.h"
#include "d_station_daemon.h"

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    DSignalWatcher::blockTerminationSignals();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hytorcd"));
    QCoreApplication::setApplicationVersion(QStringLiteral(HYTORC_VERSION));
    // No program a Bluetooth command started outlives the service.
    DDescendantProcesses::becomeSubreaper();
    int status = 0;
    {
        DStationDaemon daemon;
        status = daemon.run(QCoreApplication::arguments());
    }
    DDescendantProcesses::endAll({}, 1000);
    return status;
}
