#ifndef D_OP_SERVER_H
#define D_OP_SERVER_H

#include "d_op_alarm_layouts.h"
#include "d_op_result_layouts.h"
#include "d_op_settings.h"
#include "d_station_config.h"

#include <QDateTime>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QTcpServer>
#include <QTimer>

#include <optional>

class DOpSession;
class DResultJournal;
class DStationPart;
class DStationService;

// hytorcd's Open Protocol server: line controllers and MES connect over TCP, read the tool's
// identity and programs, select a program, lock the tool, hand in identifiers and subscribe to
// its results, which it reads from the journal once committed, and to its alarms. Runs on the
// event loop, one session per client, each answering a slice of its requests per turn.
class DOpServer : public QObject
{
    Q_OBJECT
public:
    // op-port, op-bind, op-allow, op-clients, op-idle, op-ack-timeout, op-good-status, op-cell, op-channel.
    static QList<DStationConfig::DKey> configKeys();

    DOpServer(const DStationConfig& config, DStationService* service, DStationPart* part, DResultJournal* journal,
              QObject* parent = nullptr);
    ~DOpServer() override;

    // Listens as configured (nothing with op-port 0). A port taken or an address not (yet) on
    // this host is said once and tried again every 10 s: the tool's results are journaled meanwhile.
    void start();
    // Stops listening and closes every client.
    void stop();

    // What the sessions share.
    DStationService* service() const { return m_service; }
    DStationPart* part() const { return m_part; }
    DResultJournal* journal() const { return m_journal; }
    const DOpSettings& settings() const { return m_settings; }
    int idleMs() const { return m_idleMs; }
    int ackTimeoutMs() const { return m_ackTimeoutMs; }
    int clientCount() const { return int(m_sessions.size()); }
    // The 0061 data of the journal's row `id` at `revision`, empty when the journal has none;
    // the last one is kept, as every subscriber asks for the same.
    QByteArray lastResultData(qint64 id, int revision);
    // The 0065 data of the journal's row `id`, empty when the journal has none.
    QByteArray oldResultData(qint64 id, int revision) const;
    // The 0015 data of program `progId` selected at `when`.
    QByteArray programSelectedData(int revision, int progId, const QDateTime& when) const;
    // When the active program was last selected: since the tool's link came up when unknown.
    QDateTime lastProgramChange() const;
    // The station's alarm while the tool's link is down (0071, 0076).
    bool isToolAlarmActive() const { return m_toolAlarmActive; }
    DOpAlarmLayouts::DAlarm toolAlarm() const { return m_toolAlarm; }

private:
    void listen();
    void onNewConnection();
    void onProgramSelected(int progId, const QDateTime& when);
    // The journal's row `id` in the result layouts; none when the journal has no such row.
    std::optional<DOpResultLayouts> resultLayouts(qint64 id) const;
    void onToolStateChanged(bool connected);
    void onEventRecorded(const QString& kind, const QString& text);
    void refuse(QTcpSocket* socket, const QString& peer, const QString& why);
    int busySessions() const;
    bool allowed(const QHostAddress& address) const;
    void forget(DOpSession* session);

    DStationService* m_service;
    DStationPart* m_part;
    DResultJournal* m_journal;
    DOpSettings m_settings;
    int m_port;
    QString m_bind;
    QList<QPair<QHostAddress, int>> m_allowed;  // empty: everyone who reaches the bind address
    int m_maxClients;
    int m_idleMs;
    int m_ackTimeoutMs;
    QTcpServer m_server;
    QTimer m_retry;
    QList<DOpSession*> m_sessions;
    QDateTime m_lastProgramChange;
    qint64 m_cachedId = 0;
    QHash<int, QByteArray> m_cachedData;  // by revision
    bool m_toolAlarmActive = false;
    DOpAlarmLayouts::DAlarm m_toolAlarm;
};

#endif // D_OP_SERVER_H
