// hytorc-collector: every station's results from the plant's MQTT broker into PostgreSQL.
#include "d_collector.h"
#include "d_signal_watcher.h"

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    DSignalWatcher::blockTerminationSignals();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hytorc-collector"));
    QCoreApplication::setApplicationVersion(QStringLiteral(HYTORC_VERSION));
    DCollector collector;
    return collector.run(QCoreApplication::arguments());
}
