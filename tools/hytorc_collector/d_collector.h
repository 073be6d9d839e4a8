#ifndef D_COLLECTOR_H
#define D_COLLECTOR_H

#include "d_collected_result.h"
#include "d_collector_store.h"
#include "d_completeness_ledger.h"
#include "d_station_config.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <memory>

class DMqttLink;

// hytorc-collector: every station's results from the broker into the plant's PostgreSQL, in
// batches flushed every c_flushMs, and the proof that none is missing: holes in a station's ids
// asked again of the station (PREFIX/replay), the ids it no longer has recorded as unrecoverable.
// The database may go away: results wait in memory (up to c_maxWaiting; past that they are left
// to the replay) and go once it is back.
class DCollector : public QObject
{
    Q_OBJECT
public:
    enum EnExitCode { CeExitSuccess = 0, CeExitFailure = 1, CeExitUsage = 2, CeExitDatabase = 3 };
    static constexpr int c_flushMs = 100;
    static constexpr int c_retryMs = 1000;
    static constexpr int c_checkMs = 1000;
    static constexpr int c_maxWaiting = 500000;
    static constexpr int c_maxStatus = 4096;
    static constexpr qint64 c_tailIds = 1000000;  // asked for past a station's last id held: the station caps it

    explicit DCollector(QObject* parent = nullptr);
    ~DCollector() override;

    int run(const QStringList& arguments);

private:
    static QList<DStationConfig::DKey> configKeys();
    bool start(QString* error);
    void askForTails();
    void onMessage(const QByteArray& topic, const QByteArray& payload);
    void onResult(const QByteArray& topic, const QByteArray& payload);
    void onReplayed(const QByteArray& topic, const QByteArray& payload);
    void onStatus(const QByteArray& topic, const QByteArray& payload);
    void skip(const QByteArray& topic, const QString& reason);
    void flush();
    bool reconnect();
    void check();
    void onTerminate();
    // The topic `m_topic` with its last level replaced.
    QByteArray sibling(const QByteArray& level) const;

    DStationConfig m_config;
    QString m_connInfo;
    QString m_password;
    QByteArray m_topic;
    DCollectorStore m_store;
    DCompletenessLedger* m_ledger = nullptr;
    DMqttLink* m_link = nullptr;
    QList<DCollectedResult> m_waiting;
    QList<DCollectorStore::DStatement> m_statements;
    QTimer m_flush;
    QTimer m_check;
    qint64 m_retryAtMs = 0;
    bool m_databaseLost = false;
    qint64 m_stored = 0;
    qint64 m_duplicates = 0;
    qint64 m_skipped = 0;
    qint64 m_deferred = 0;
};

#endif // D_COLLECTOR_H
