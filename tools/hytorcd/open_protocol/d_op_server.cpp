#include "d_op_server.h"

#include "d_message_handler.h"
#include "d_op_program_layouts.h"
#include "d_op_session.h"
#include "d_result_journal.h"
#include "d_station_part.h"
#include "d_station_service.h"

#include <QtDebug>

#include <QTcpSocket>

#include <algorithm>

namespace {

const QString c_any = QStringLiteral("any");
constexpr int c_retryMs = 10000;
// Alarm codes of ours (4 characters, as both revisions of 0071 carry them).
const QString c_toolAlarmCode = QStringLiteral("E101");
const QString c_resultsLostCode = QStringLiteral("E201");

QStringList items(const QString& list)
{
    QStringList all = list.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (QString& item : all)
        item = item.trimmed();
    all.removeAll(QString());
    return all;
}

// An address ("10.1.2.3", "::1") or a block ("10.1.0.0/16", "fd00::/8"); a null address when neither.
QPair<QHostAddress, int> block(const QString& item)
{
    if (item.contains(QLatin1Char('/')))
        return QHostAddress::parseSubnet(item);
    const QHostAddress address(item);
    return {address, address.protocol() == QAbstractSocket::IPv6Protocol ? 128 : 32};
}

QHostAddress bindAddress(const QString& text)
{
    return text.trimmed() == c_any ? QHostAddress(QHostAddress::Any) : QHostAddress(text.trimmed());
}

// A client of IPv4 reaching an IPv6 socket shows as ::ffff:a.b.c.d.
QHostAddress plain(const QHostAddress& address)
{
    bool isIpv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIpv4);
    return isIpv4 ? QHostAddress(ipv4) : address;
}

} // namespace

QList<DStationConfig::DKey> DOpServer::configKeys()
{
    const auto seconds = DStationConfig::integer(1, 3600);
    return {
        {QStringLiteral("op-port"), QStringLiteral("4545"), QStringLiteral("a port, 0 to 65535 (0: no Open Protocol server)"),
         DStationConfig::integer(0, 65535), QStringLiteral("The Open Protocol server's TCP port; 0 switches it off.")},
        {QStringLiteral("op-bind"), QStringLiteral("127.0.0.1"), QStringLiteral("an IPv4 or IPv6 address, or \"any\""),
         [](const QString& text) { return !bindAddress(text).isNull(); },
         QStringLiteral("The address the Open Protocol server listens on; 0.0.0.0, :: or any opens it to the network.")},
        {QStringLiteral("op-allow"), QString(), QStringLiteral("addresses or CIDR blocks, comma-separated (10.0.0.5,10.1.0.0/16,fd00::/8)"),
         [](const QString& text) {
             const QStringList all = items(text);
             return !all.isEmpty() && std::all_of(all.cbegin(), all.cend(), [](const QString& item) { return !block(item).first.isNull(); });
         },
         QStringLiteral("The Open Protocol clients allowed, by address or block. Default: all that reach --op-bind.")},
        {QStringLiteral("op-clients"), QStringLiteral("5"), QStringLiteral("a number, 1 to 100"), DStationConfig::integer(1, 100),
         QStringLiteral("How many Open Protocol clients at once; one more hears 0004 error 16 and is closed.")},
        {QStringLiteral("op-idle"), QStringLiteral("15"), QStringLiteral("seconds, 1 to 3600"), seconds,
         QStringLiteral("An Open Protocol client that exchanged no whole message this long is closed (the keep-alive rule).")},
        {QStringLiteral("op-ack-timeout"), QStringLiteral("10"), QStringLiteral("seconds, 1 to 3600"), seconds,
         QStringLiteral("A result (0061) not acknowledged this long is sent again, 3 times at most, then the client is closed.")},
        {QStringLiteral("op-good-status"), QStringLiteral("PASSED,OK"), QStringLiteral("the tool's status words, comma-separated"),
         [](const QString& text) { return !items(text).isEmpty(); },
         QStringLiteral("The tool's status words that mean a good tightening (tightening status 1).")},
        {QStringLiteral("op-cell"), QStringLiteral("0001"), QStringLiteral("a number, 0 to 9999"), DStationConfig::integer(0, 9999),
         QStringLiteral("The cell id that Open Protocol clients see.")},
        {QStringLiteral("op-channel"), QStringLiteral("01"), QStringLiteral("a number, 0 to 99"), DStationConfig::integer(0, 99),
         QStringLiteral("The channel id that Open Protocol clients see.")},
    };
}

DOpServer::DOpServer(const DStationConfig& config, DStationService* service, DStationPart* part,
                     DResultJournal* journal, QObject* parent)
    : QObject(parent)
    , m_service(service)
    , m_part(part)
    , m_journal(journal)
    , m_settings({config.intValue(QStringLiteral("op-cell")), config.intValue(QStringLiteral("op-channel")),
                   service->station(), items(config.value(QStringLiteral("op-good-status")))})
    , m_port(config.intValue(QStringLiteral("op-port")))
    , m_bind(config.value(QStringLiteral("op-bind")).trimmed())
    , m_maxClients(config.intValue(QStringLiteral("op-clients")))
    , m_idleMs(config.intValue(QStringLiteral("op-idle")) * 1000)
    , m_ackTimeoutMs(config.intValue(QStringLiteral("op-ack-timeout")) * 1000)
{
    for (const QString& item : items(config.value(QStringLiteral("op-allow"))))
        m_allowed << block(item);
    connect(&m_server, &QTcpServer::newConnection, this, &DOpServer::onNewConnection);
    m_retry.setInterval(c_retryMs);
    connect(&m_retry, &QTimer::timeout, this, &DOpServer::listen);
    connect(m_journal, &DResultJournal::sigCommitted, this, [this](qint64 id) {
        const QList<DOpSession*> sessions = m_sessions;  // one that falls behind closes on the way
        for (DOpSession* session : sessions)
            session->onCommitted(id);
    });
    connect(m_service, &DStationService::sigProgramSelected, this, &DOpServer::onProgramSelected);
    connect(m_service, &DStationService::sigToolStateChanged, this, &DOpServer::onToolStateChanged);
    connect(m_journal, &DResultJournal::sigEventRecorded, this, &DOpServer::onEventRecorded);
    connect(m_part, &DStationPart::sigIdentifiersChanged, this, [this] {
        for (DOpSession* session : qAsConst(m_sessions))
            session->onIdentifiersChanged();
    });
    connect(m_part, &DStationPart::sigLockAtBatchDoneChanged, this, [this](bool locked) {
        for (DOpSession* session : qAsConst(m_sessions))
            session->onLockAtBatchDoneChanged(locked);
    });
    m_toolAlarm = {c_toolAlarmCode, QStringLiteral("tool is inaccessible"), false, QDateTime()};
}

DOpServer::~DOpServer() = default;

void DOpServer::start()
{
    if (m_port == 0)
        return;
    // Until the tool's link is up, the tool is inaccessible.
    m_toolAlarmActive = !m_service->isToolConnected();
    m_toolAlarm.when = QDateTime::currentDateTime();
    listen();
}

void DOpServer::listen()
{
    if (m_server.listen(bindAddress(m_bind), quint16(m_port))) {
        m_retry.stop();
        DMessageHandler::say(QStringLiteral("Open Protocol server on %1 port %2").arg(m_bind).arg(m_port));
    } else if (!m_retry.isActive()) {
        DMessageHandler::say(QStringLiteral("Open Protocol: cannot listen on %1 port %2: %3; trying again every %4 s")
                                 .arg(m_bind).arg(m_port).arg(m_server.errorString()).arg(c_retryMs / 1000));
        m_retry.start();
    }
}

void DOpServer::stop()
{
    m_retry.stop();
    m_server.close();
    const QList<DOpSession*> sessions = m_sessions;  // each removes itself as it closes
    for (DOpSession* session : sessions)
        session->close(QString());
}

QByteArray DOpServer::lastResultData(qint64 id, int revision)
{
    if (id != m_cachedId) {
        m_cachedId = 0;
        m_cachedData.clear();
    }
    const auto cached = m_cachedData.constFind(revision);
    if (cached != m_cachedData.cend())
        return cached.value();
    const std::optional<DOpResultLayouts> layouts = resultLayouts(id);
    if (!layouts) {
        DMessageHandler::say(QStringLiteral("Open Protocol: result %1 not in the journal; not sent").arg(id));
        return QByteArray();
    }
    m_cachedId = id;
    return *m_cachedData.insert(revision, layouts->lastResult(revision));
}

QByteArray DOpServer::oldResultData(qint64 id, int revision) const
{
    const std::optional<DOpResultLayouts> layouts = resultLayouts(id);
    return layouts ? layouts->oldResult(revision) : QByteArray();
}

std::optional<DOpResultLayouts> DOpServer::resultLayouts(qint64 id) const
{
    const QVariantMap row = m_journal->row(id);
    if (row.isEmpty())
        return std::nullopt;
    const QVariantMap program = m_service->programs().value(row.value(QStringLiteral("progId")).toInt() - 1).toMap();
    return DOpResultLayouts(m_settings, row, program, lastProgramChange());
}

QByteArray DOpServer::programSelectedData(int revision, int progId, const QDateTime& when) const
{
    const QVariantMap program = m_service->programs().value(progId - 1).toMap();
    return DOpProgramLayouts::programSelected(revision, progId, when, program, m_part->programSettings(progId));
}

QDateTime DOpServer::lastProgramChange() const
{
    return m_lastProgramChange.isValid() ? m_lastProgramChange : m_service->connectedSince();
}

// A client past the limit is let in to hear 0004 error 16 to its 0001 (Open Protocol R2.8.0,
// p.44); past as many again, it is closed at once.
void DOpServer::onNewConnection()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        const QHostAddress peer = plain(socket->peerAddress());
        const QString address = peer.isNull() ? QStringLiteral("(address gone)") : peer.toString();
        if (!allowed(peer)) {
            refuse(socket, address, QStringLiteral("not in --op-allow"));
            continue;
        }
        const int busy = busySessions();
        const bool full = m_sessions.size() - busy >= m_maxClients;
        if (full && busy >= m_maxClients) {
            refuse(socket, address, QStringLiteral("%1 clients already").arg(m_maxClients));
            continue;
        }
        if (full)
            qWarning().noquote() << QStringLiteral("Open Protocol client %1 refused: %2 clients already; told so (0004 error 16)")
                                        .arg(address).arg(m_maxClients);
        auto* session = new DOpSession(socket, address, full, this);
        connect(session, &DOpSession::sigClosed, this, [this, session] { forget(session); });
        m_sessions << session;
    }
}

// Through the message handler's warnings: a flood of refusals is counted, not repeated.
void DOpServer::refuse(QTcpSocket* socket, const QString& peer, const QString& why)
{
    qWarning().noquote() << QStringLiteral("Open Protocol client %1 refused: %2").arg(peer, why);
    socket->abort();
    socket->deleteLater();
}

int DOpServer::busySessions() const
{
    return int(std::count_if(m_sessions.cbegin(), m_sessions.cend(), [](DOpSession* session) { return session->isBusy(); }));
}

void DOpServer::onProgramSelected(int progId, const QDateTime& when)
{
    m_lastProgramChange = when;
    m_cachedId = 0;
    m_cachedData.clear();
    for (DOpSession* session : qAsConst(m_sessions))
        session->onProgramSelected(progId, when);
}

void DOpServer::onToolStateChanged(bool connected)
{
    if (m_toolAlarmActive != connected)
        return;
    m_toolAlarmActive = !connected;
    m_toolAlarm.when = QDateTime::currentDateTime();
    const QList<DOpSession*> sessions = m_sessions;
    for (DOpSession* session : sessions)
        session->onAlarm(m_toolAlarm, !connected);
}

// Results lost on a full disk: an alarm of the moment, the journal's event row keeps it.
void DOpServer::onEventRecorded(const QString& kind, const QString& text)
{
    if (kind != QLatin1String("results-lost"))
        return;
    const DOpAlarmLayouts::DAlarm alarm{c_resultsLostCode, text, m_service->isToolConnected(), QDateTime::currentDateTime()};
    const QList<DOpSession*> sessions = m_sessions;
    for (DOpSession* session : sessions)
        session->onAlarm(alarm, true);
}

bool DOpServer::allowed(const QHostAddress& address) const
{
    if (m_allowed.isEmpty())
        return true;
    return std::any_of(m_allowed.cbegin(), m_allowed.cend(), [&](const QPair<QHostAddress, int>& each) {
        return address.isInSubnet(each);
    });
}

void DOpServer::forget(DOpSession* session)
{
    m_sessions.removeOne(session);
    session->deleteLater();
}
