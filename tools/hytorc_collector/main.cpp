// hytorc-collector: every station's results from the plant's MQTT broker into PostgreSQL.
#include "d_collector.h"
#include "d_signal_watcher.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstring>

int main(int argc, char* argv[])
{
    // The audit reads and prints only: Ctrl-C simply ends it. The collector writes what waits first.
    const bool audit = std::any_of(argv + 1, argv + argc, [](const char* arg) { return std::strcmp(arg, "--audit") == 0; });
    if (!audit)
        DSignalWatcher::blockTerminationSignals();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hytorc-collector"));
    QCoreApplication::setApplicationVersion(QStringLiteral(HYTORC_VERSION));
    DCollector collector;
    return collector.run(QCoreApplication::arguments());
}
