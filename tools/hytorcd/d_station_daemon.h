#ifndef D_STATION_DAEMON_H
#define D_STATION_DAEMON_H

#include "d_station_config.h"
#include "d_station_part.h"

#include <QObject>

class DMqttReporter;
class DOpServer;
class DResultJournal;
class DSignalWatcher;
class DSimulatorProcess;
class DStationService;
class DWebServer;
class DWebStatus;
class DWorkstation;

// hytorcd's whole life: its settings, the journal, the plug-ins, the tool's service and the
// parts that pass results on; SIGTERM or SIGINT ends it cleanly within 2 s.
class DStationDaemon : public QObject
{
    Q_OBJECT
public:
    enum EnExitCode { CeExitSuccess = 0, CeExitFailure = 1, CeExitUsage = 2 };

    explicit DStationDaemon(QObject* parent = nullptr);
    ~DStationDaemon() override;

    // Every key of every part, as options and in the configuration file.
    static QList<DStationConfig::DKey> configKeys();

    // Parses `arguments`, runs until a termination signal, returns the exit status.
    int run(const QStringList& arguments);

private:
    bool setUp(QString* error, int* status);
    // The scanner, `hytorc identify`'s socket, error-proofing and the stamp on every result.
    void setUpPart(const QString& station, const QString& journal);
    void onTerminate();

    DStationConfig m_config;
    DResultJournal* m_journal = nullptr;
    DWorkstation* m_workstation = nullptr;
    DSimulatorProcess* m_simulator = nullptr;
    DStationService* m_service = nullptr;
    DOpServer* m_opServer = nullptr;
    DSignalWatcher* m_signals = nullptr;
    bool m_stopping = false;
    DMqttReporter* m_mqtt = nullptr;
    DStationPart* m_part = nullptr;
    DWebServer* m_web = nullptr;
    DWebStatus* m_webStatus = nullptr;
    QHash<int, DStationPart::DProgramSettings> m_programs;
};

#endif // D_STATION_DAEMON_H
