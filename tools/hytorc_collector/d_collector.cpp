#include "d_collector.h"

#include "d_collector_audit.h"
#include "d_message_handler.h"
#include "d_mqtt_link.h"
#include "d_mqtt_settings.h"
#include "d_signal_watcher.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QHostInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <libpq-fe.h>

#include <cstdio>

namespace {

const QString c_defaultTopic = QStringLiteral("hytorc/+/results");

bool validResultsTopic(const QString& topic)
{
    return DMqttSettings::validTopic(QString(topic).remove(QLatin1Char('+'))) && topic.endsWith(QLatin1String("/results"))
        && !topic.contains(QLatin1String("//"));
}

QString readFirstLine(const QString& path)
{
    QFile file(path);
    return !path.isEmpty() && file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readLine()).remove(QLatin1Char('\n')).remove(QLatin1Char('\r'))
                                          : QString();
}

qint64 now() { return QDateTime::currentMSecsSinceEpoch(); }

} // namespace

DCollector::DCollector(QObject* parent)
    : QObject(parent)
    , m_config(configKeys(), QStringLiteral("The HYTORC results collector: every station's results from the MQTT broker "
                                            "into PostgreSQL, with the proof that none is missing."))
{
}

DCollector::~DCollector() { delete m_ledger; }

QList<DStationConfig::DKey> DCollector::configKeys()
{
    const auto group = [](const QString& text) { return QRegularExpression(QStringLiteral("^[^/+#]+$")).match(text).hasMatch(); };
    return DMqttSettings::configKeys(QStringLiteral("hytorc-collector-<host name>")) + QList<DStationConfig::DKey>{
        {QStringLiteral("topic"), c_defaultTopic, QStringLiteral("a topic ending in /results, + as a level wildcard"),
         validResultsTopic, QStringLiteral("The stations' results topic; replay requests go to the level beside it.")},
        {QStringLiteral("share"), QString(), QStringLiteral("a group name without / + #"), group,
         QStringLiteral("Shares the results with the other collectors of this group ($share/GROUP/...).")},
        {QStringLiteral("postgres"), QString(), QStringLiteral("a libpq connection string without a password"), nullptr,
         QStringLiteral("The plant database (libpq's connection string: \"host=db.plant dbname=quality user=collector\").")},
        {QStringLiteral("postgres-password-file"), QString(), QStringLiteral("a readable file"), DStationConfig::readableFile(),
         QStringLiteral("A file whose first line is the database password (or libpq's PGPASSFILE).")},
        {QStringLiteral("grace"), QStringLiteral("5"), QStringLiteral("seconds, 1 to 3600"), DStationConfig::integer(1, 3600),
         QStringLiteral("How long a hole in a station's ids may wait for its result before the station is asked again.")},
        {QStringLiteral("audit"), QString(), QString(), nullptr,
         QStringLiteral("Prints each station's ids held and gaps open, filled and unrecoverable, then exits (1: a gap is open)."),
         true},
    };
}

int DCollector::run(const QStringList& arguments)
{
    QString message;
    bool helpShown = false;
    if (!m_config.parse(arguments, &message, &helpShown)) {
        if (helpShown)
            return std::fputs(qPrintable(message), stdout), CeExitSuccess;
        return DMessageHandler::say(message), CeExitUsage;
    }
    DMessageHandler::install(m_config.verbose());
    m_connInfo = m_config.value(QStringLiteral("postgres"));
    m_password = readFirstLine(m_config.value(QStringLiteral("postgres-password-file")));
    if (m_connInfo.isEmpty())
        return DMessageHandler::say(QStringLiteral("--postgres is needed: the plant database's connection string")), CeExitUsage;
    if (!DPostgresConnection::checkConnInfo(m_connInfo, &message))
        return DMessageHandler::say(message), CeExitUsage;
    if (m_config.isSet(QStringLiteral("audit"))) {
        DPostgresConnection connection;
        if (!connection.open(m_connInfo, m_password, &message))
            return DMessageHandler::say(QStringLiteral("postgres: %1").arg(message)), CeExitDatabase;
        return DCollectorAudit(&connection).run();
    }
    if (!start(&message))
        return DMessageHandler::say(message), CeExitUsage;
    auto* watcher = new DSignalWatcher(this);
    connect(watcher, &DSignalWatcher::sigTerminate, this, &DCollector::onTerminate);
    return QCoreApplication::exec();
}

bool DCollector::start(QString* error)
{
    DMqttSettings settings;
    if (!m_config.isSet(QStringLiteral("mqtt")))
        return *error = QStringLiteral("--mqtt is needed: the broker the stations publish to"), false;
    if (!settings.read(m_config, QStringLiteral("hytorc-collector-") + QHostInfo::localHostName(), error))
        return false;
    // The broker keeps the subscription and queues results while the collector is away.
    settings.cleanSession = false;
    m_topic = m_config.value(QStringLiteral("topic")).toUtf8();
    m_ledger = new DCompletenessLedger(m_config.intValue(QStringLiteral("grace")) * 1000LL);
    m_link = new DMqttLink(settings, this);
    const QString group = m_config.value(QStringLiteral("share"));
    m_link->subscribe(group.isEmpty() ? m_topic : "$share/" + group.toUtf8() + '/' + m_topic);
    // Every collector hears every answer and status: recording them is idempotent.
    m_link->subscribe(sibling("replayed"));
    m_link->subscribe(sibling("status"));
    connect(m_link, &DMqttLink::sigMessage, this, &DCollector::onMessage);
    connect(m_link, &DMqttLink::sigConnected, this, &DCollector::askForTails);
    QString reason;
    if (m_store.open(m_connInfo, m_password, &reason)) {
        DMessageHandler::say(QStringLiteral("postgres: connected, schema version %1").arg(DCollectorStore::schemaVersion()));
    } else {
        DMessageHandler::say(QStringLiteral("postgres: %1; results wait in memory, trying again every %2 s").arg(reason).arg(c_retryMs / 1000));
        m_databaseLost = true;
        m_retryAtMs = now() + c_retryMs;
    }
    connect(&m_flush, &QTimer::timeout, this, &DCollector::flush);
    connect(&m_check, &QTimer::timeout, this, &DCollector::check);
    m_flush.start(c_flushMs);
    m_check.start(c_checkMs);
    m_link->open();
    return true;
}

QByteArray DCollector::sibling(const QByteArray& level) const { return m_topic.left(m_topic.lastIndexOf('/') + 1) + level; }

// A result the broker handed over but this collector never committed (it was killed) shows as
// a hole only once the station's next result comes; a station that fell silent would hide it.
// So each connection (to the broker, or to the database after it was away) asks every station
// the database knows for whatever came after its last id: the station answers with what its
// journal holds past it, if anything.
void DCollector::askForTails()
{
    const int wildcard = m_topic.indexOf("/+/");
    if (!m_store.isOpen() || wildcard < 0 || m_topic.count('+') != 1)
        return;
    QString error;
    const auto stations = m_store.connection()->exec("SELECT station, last_id FROM stations WHERE last_id > 0", {}, &error);
    for (int row = 0; stations && row < PQntuples(stations.get()); ++row) {
        const QByteArray station = PQgetvalue(stations.get(), row, 0);
        const qint64 last = QByteArray(PQgetvalue(stations.get(), row, 1)).toLongLong();
        const QByteArray prefix = m_topic.left(wildcard + 1) + station + m_topic.mid(wildcard + 2, m_topic.lastIndexOf('/') - wildcard - 2);
        m_link->publish(prefix + "/replay", QJsonDocument(QJsonObject{{QStringLiteral("from"), last + 1},
                                                                      {QStringLiteral("to"), last + c_tailIds}})
                                                .toJson(QJsonDocument::Compact), false);
    }
}

void DCollector::onMessage(const QByteArray& topic, const QByteArray& payload)
{
    if (topic.endsWith("/results"))
        onResult(topic, payload);
    else if (topic.endsWith("/replayed"))
        onReplayed(topic, payload);
    else if (topic.endsWith("/status"))
        onStatus(topic, payload);
}

void DCollector::onResult(const QByteArray& topic, const QByteArray& payload)
{
    DCollectedResult result;
    QString reason;
    if (!result.parse(topic, payload, &reason))
        return skip(topic, reason);
    // Past the limit the result is left to the replay, as if it never came.
    if (m_waiting.size() >= c_maxWaiting) {
        ++m_deferred;
        return;
    }
    m_ledger->received(result.station, result.prefix, result.id);
    m_waiting.append(result);
}

void DCollector::skip(const QByteArray& topic, const QString& reason)
{
    ++m_skipped;
    DMessageHandler::say(QStringLiteral("skipped a message on %1: %2 (%3 skipped since the start)")
                             .arg(QString::fromUtf8(topic.left(200)), reason).arg(m_skipped));
}

// {"from": A, "to": B, "missing": [[a, b], ...]}: the ids of A..B the station's journal no longer holds.
void DCollector::onReplayed(const QByteArray& topic, const QByteArray& payload)
{
    const QString station = m_ledger->stationOf(topic.left(topic.lastIndexOf('/')));
    const QJsonObject answer = QJsonDocument::fromJson(payload.left(DCollectedResult::c_maxPayload)).object();
    const qint64 from = answer.value(QStringLiteral("from")).toVariant().toLongLong();
    const qint64 to = answer.value(QStringLiteral("to")).toVariant().toLongLong();
    if (station.isEmpty() || from < 1 || to < from)
        return;
    for (const QJsonValue& range : answer.value(QStringLiteral("missing")).toArray()) {
        const qint64 first = qMax(from, range.toArray().at(0).toVariant().toLongLong());
        const qint64 last = qMin(to, range.toArray().at(1).toVariant().toLongLong());
        if (first > last)
            continue;
        DMessageHandler::say(QStringLiteral("%1: results %2 to %3 are no longer in the station's journal: recorded as unrecoverable")
                                 .arg(station).arg(first).arg(last));
        m_ledger->held(station, first, last);
        m_statements << DCollectorStore::recordLost(station, first, last);
    }
}

void DCollector::onStatus(const QByteArray& topic, const QByteArray& payload)
{
    const QByteArray prefix = topic.left(topic.lastIndexOf('/'));
    const QString station = QString::fromUtf8(prefix.mid(prefix.lastIndexOf('/') + 1));
    if (payload.size() <= c_maxStatus && QJsonDocument::fromJson(payload).isObject() && !station.isEmpty())
        m_statements << DCollectorStore::recordStatus(station, payload);
}

void DCollector::flush()
{
    if ((m_waiting.isEmpty() && m_statements.isEmpty()) || !reconnect())
        return;
    int added = 0;
    QString error;
    const QList<DCollectedResult> batch = m_waiting;
    if (m_store.write(batch, m_statements, &added, &error)) {
        m_stored += added;
        m_duplicates += batch.size() - added;
        m_waiting.clear();
        m_statements.clear();
        return;
    }
    // The server refused the batch (a row of it, or a deadlock with another collector): row by row, keep the rest.
    if (m_store.isOpen() && m_store.writeEach(batch, [this](const DCollectedResult& result, const QString& reason) {
            skip(result.prefix + "/results", QStringLiteral("id %1 of %2 refused by the database: %3").arg(result.id).arg(result.station, reason));
        }, &added, &error)) {
        m_stored += added;
        m_duplicates += batch.size() - added;
        m_waiting.clear();
        return;
    }
    m_databaseLost = true;
    m_retryAtMs = now() + c_retryMs;
    m_store.connection()->close();
    DMessageHandler::say(QStringLiteral("postgres: %1; %2 result(s) wait in memory, trying again every %3 s")
                             .arg(error).arg(m_waiting.size()).arg(c_retryMs / 1000));
}

bool DCollector::reconnect()
{
    if (m_store.isOpen())
        return true;
    if (now() < m_retryAtMs)
        return false;
    QString error;
    if (!m_store.open(m_connInfo, m_password, &error)) {
        m_retryAtMs = now() + c_retryMs;
        if (!m_databaseLost)
            DMessageHandler::say(QStringLiteral("postgres: %1; trying again every %2 s").arg(error).arg(c_retryMs / 1000));
        m_databaseLost = true;
        return false;
    }
    if (m_databaseLost)
        DMessageHandler::say(QStringLiteral("postgres: back; %1 result(s) being written").arg(m_waiting.size()));
    m_databaseLost = false;
    if (m_link->isConnected())
        askForTails();
    return true;
}

// Holes past the grace time: first what the database holds (another collector may have them),
// then a replay request for the rest.
void DCollector::check()
{
    const qint64 at = now();
    QList<DCompletenessLedger::DHole> due = m_ledger->due(at);
    if (!due.isEmpty() && m_store.isOpen()) {
        // One question per station, over the span of its holes.
        QMap<QString, DIdRanges::DRange> spans;
        for (const DCompletenessLedger::DHole& hole : qAsConst(due)) {
            auto span = spans.find(hole.station);
            if (span == spans.end())
                spans.insert(hole.station, {hole.first, hole.last});
            else
                *span = {qMin(span->first, hole.first), qMax(span->second, hole.last)};
        }
        for (auto span = spans.cbegin(); span != spans.cend(); ++span) {
            QList<DCollectorStore::DIsland> islands;
            QString error;
            m_store.islands(span.key(), span->first, span->second, &islands, &error);
            for (const DCollectorStore::DIsland& island : qAsConst(islands))
                m_ledger->held(island.station, island.first, island.last);
        }
        due = m_ledger->due(at);
    }
    for (const DCompletenessLedger::DHole& hole : qAsConst(due)) {
        const QByteArray request = QJsonDocument(QJsonObject{{QStringLiteral("from"), hole.first}, {QStringLiteral("to"), hole.last}})
                                       .toJson(QJsonDocument::Compact);
        if (m_link->publish(hole.prefix + "/replay", request, false) == 0)
            continue;
        DMessageHandler::say(QStringLiteral("%1: results %2 to %3 missing: asked again").arg(hole.station).arg(hole.first).arg(hole.last));
        m_ledger->asked(hole, at);
        m_statements << DCollectorStore::askGap(hole.station, hole.first, hole.last);
    }
    for (const DCompletenessLedger::DHole& range : m_ledger->closed(at))
        m_statements << DCollectorStore::closeGap(range.station, range.first, range.last);
}

void DCollector::onTerminate()
{
    m_flush.stop();
    m_check.stop();
    m_link->close(1000);
    flush();
    DMessageHandler::say(QStringLiteral("stopped: %1 result(s) stored, %2 already there, %3 skipped, %4 left to the replay%5")
                             .arg(m_stored).arg(m_duplicates).arg(m_skipped).arg(m_deferred)
                             .arg(m_waiting.isEmpty() ? QString() : QStringLiteral(", %1 not written").arg(m_waiting.size())));
    QCoreApplication::exit(CeExitSuccess);
}
