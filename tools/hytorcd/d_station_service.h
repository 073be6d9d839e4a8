#ifndef D_STATION_SERVICE_H
#define D_STATION_SERVICE_H

#include "d_doubled_reports.h"
#include "d_station_config.h"

#include <QDateTime>
#include <QObject>
#include <QQueue>
#include <QTimer>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

class DAbstractPlugin;
class DCommandRunner;
class DLinkSupervisor;
class DResultHold;
class DResultJournal;
class DWorkstation;

// The tool kept connected unattended: open the link (a serial port, or a Bluetooth tool bound
// by searchAndConnect), read its identity and programs, switch the keep-alive on and listen;
// on a loss, reopen with a backoff of 1 s doubling to 30 s, forever, and do it all again.
// Every tightening result goes into the journal before anything else hears of it.
// One line on stderr per change of state.
class DStationService : public QObject
{
    Q_OBJECT
public:
    enum EnState { CeStopped, CeConnecting, CeIdentifying, CeListening, CeWaiting };
    using DDone = std::function<void(bool ok, const QString& reason)>;

    // The keys this part reads: device, bluetooth, journal, station, hold.
    static QList<DStationConfig::DKey> configKeys();

    DStationService(DWorkstation* workstation, DResultJournal* journal, const QString& station,
                    QObject* parent = nullptr);
    ~DStationService() override;

    // How many results are held in memory while the journal refuses them.
    void setHoldLimit(int limit);
    // `devicePath` is a serial port; with a Bluetooth address instead, searchAndConnect binds it.
    void start(const QString& devicePath, const QString& bluetoothSerial);
    // Stops the listening the host's way ("stopListening") and closes the link; `done` once it has.
    void stop(const std::function<void()>& done);

    EnState state() const { return m_state; }
    bool isToolConnected() const { return m_state == CeListening; }
    QString station() const { return m_station; }
    QString toolSerial() const { return m_toolSerial; }
    // getToolInfo's "deviceInformation" and listProgram's "programList", as last read.
    QVariantMap toolInfo() const { return m_toolInfo; }
    QVariantList programs() const { return m_programs; }
    // The active program's id (1-based in programs()), 0 when none is known.
    int currentProgId() const;
    QDateTime connectedSince() const { return m_since; }

    // Runs one tool command (setProgram, setLock, ...) on the link while it is up; commands run
    // one at a time, in the order asked. `done(false, reason)` at once when the tool is not connected.
    // `requester` names the part of the station that asked (empty: a client).
    void runToolCommand(const QString& name, const QVariantMap& arguments, const DDone& done,
                        const QString& requester = QString());
    // Called with each result's record before the journal takes it (the part's identifiers, batch).
    void setStamp(const std::function<void(QVariantMap*)>& stamp) { m_stamp = stamp; }

signals:
    // The tool is listening (true) or its link is down (false).
    void sigToolStateChanged(bool connected);
    // toolInfo() and programs() were read again.
    void sigToolIdentified();
    // The active program changed (a command of ours or the panel's): its new id.
    void sigProgramSelected(int progId, const QDateTime& when);
    // The tool acknowledged a setLock that `requester` asked for.
    void sigToolLockSet(bool locked, const QString& requester);

private:
    struct DOrder {
        QString name;
        QVariantMap arguments;
        DDone done;
        QString requester;
    };

    void connectLink();
    void searchAndConnect();
    void identify();
    void startListening();
    void runStep(const QString& name, const QVariantMap& arguments,
                 const std::function<void(bool ok, const QVariantMap& results)>& next);
    void onLinkLost();
    void waitAndRetry(const QString& reason);
    void setState(EnState state);
    void onResultsUpdated(quint64 runId, const QString& name, const QVariantMap& changed);
    void onFinished(quint64 runId, const QString& name, bool ok, const QVariantMap& results);
    void runNextOrder();
    void journal(const QVariantMap& record);

    DWorkstation* m_workstation;
    DCommandRunner* m_runner;
    DAbstractPlugin* m_device;
    DLinkSupervisor* m_link;
    DResultJournal* m_journal;
    DResultHold* m_hold;
    DDoubledReports m_doubles;
    QString m_station;
    QString m_devicePath;
    QString m_bluetoothSerial;
    EnState m_state = CeStopped;
    QString m_toolSerial;
    QVariantMap m_toolInfo;
    QVariantList m_programs;
    QDateTime m_since;
    quint64 m_listenRun = 0;
    QHash<quint64, std::function<void(bool, const QVariantMap&)>> m_steps;  // runs awaited, by run id
    QHash<quint64, QString> m_reasons;  // what the engine said before a run failed
    QQueue<DOrder> m_orders;
    bool m_orderRunning = false;
    int m_backoffSeconds = 1;
    bool m_retrying = false;  // the first "retrying" of this outage was said
    QTimer m_retry;
    std::function<void(QVariantMap*)> m_stamp;
};

#endif // D_STATION_SERVICE_H
