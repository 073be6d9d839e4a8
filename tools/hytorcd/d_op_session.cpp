#include "d_op_session.h"

#include "d_message_handler.h"
#include "d_op_message.h"
#include "d_op_server.h"
#include "d_result_journal.h"
#include "d_station_service.h"

#include <QPointer>
#include <QTcpSocket>
#include <QtDebug>

namespace {

constexpr int c_maxResends = 3;
// Past this many unacknowledged results the client is not keeping up: it is closed and reads
// the journal again after it comes back (0064).
constexpr int c_maxQueued = 10000;
// What a client may send before the end of a tool command, or leave unread of our replies;
// more is a flood, or a client that asks without reading.
constexpr int c_maxBuffered = 1 << 20;
const QList<int> c_clientMids{1, 2, 3, 10, 12, 14, 16, 17, 18, 40, 42, 43, 60, 62, 63, 64, 9999};

enum EnError {
    CeInvalidData = 1,
    CeUnknownProgram = 2,
    CeProgramNotSet = 3,
    CeResultsSubscribed = 9,
    CeResultsNotSubscribed = 10,
    CeProgramsSubscribed = 13,
    CeProgramsNotSubscribed = 14,
    CeResultNotFound = 15,
    CeToolInaccessible = 27,
    CeCommandFailed = 79,
    CeAlreadyConnected = 96,
    CeRevisionUnsupported = 97,
    CeUnknownMid = 99,
};

} // namespace

DOpSession::DOpSession(QTcpSocket* socket, const QString& address, DOpServer* server)
    : QObject(server)
    , m_socket(socket)
    , m_server(server)
    , m_peer(QStringLiteral("%1 port %2").arg(address).arg(socket->peerPort()))
{
    socket->setParent(this);
    // Small messages answered one by one: none waits for the one before it to be acknowledged.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_idle.setSingleShot(true);
    m_idle.setInterval(server->idleMs());
    m_ackTimer.setSingleShot(true);
    m_ackTimer.setInterval(server->ackTimeoutMs());
    connect(&m_idle, &QTimer::timeout, this,
            [this] { close(QStringLiteral("silent for %1 s").arg(m_idle.interval() / 1000)); });
    connect(&m_ackTimer, &QTimer::timeout, this, &DOpSession::onAckTimeout);
    connect(socket, &QTcpSocket::readyRead, this, &DOpSession::onReadyRead);
    connect(socket, &QTcpSocket::disconnected, this, [this] { close(QString()); });
    m_idle.start();
    qInfo().noquote() << QStringLiteral("Open Protocol client %1 connected").arg(m_peer);
}

DOpSession::~DOpSession() = default;

void DOpSession::close(const QString& reason)
{
    if (m_closed)
        return;
    m_closed = true;
    if (!reason.isEmpty())
        DMessageHandler::say(QStringLiteral("Open Protocol client %1: %2; closed").arg(m_peer, reason));
    else
        qInfo().noquote() << QStringLiteral("Open Protocol client %1 left").arg(m_peer);
    m_idle.stop();
    m_ackTimer.stop();
    // The replies before the reason still go out; what the client sends after it is dropped.
    m_socket->flush();
    m_socket->abort();
    emit sigClosed();
}

void DOpSession::onReadyRead()
{
    m_idle.start();
    m_buffer += m_socket->readAll();
    readMessages();
    if (m_buffer.size() > c_maxBuffered)
        close(QStringLiteral("more than %1 bytes of requests waiting").arg(c_maxBuffered));
}

// Requests are answered in order: while a tool command runs, the ones after it wait here.
void DOpSession::readMessages()
{
    int offset = 0;
    DOpMessage message;
    QString error;
    while (!m_waitingForTool && m_socket->state() == QAbstractSocket::ConnectedState) {
        const DOpMessage::EnRead outcome = DOpMessage::read(m_buffer, &offset, &message, &error);
        if (outcome == DOpMessage::CeMalformed)
            return close(QStringLiteral("malformed message (%1)").arg(error));
        if (outcome == DOpMessage::CeIncomplete)
            break;
        handle(message);
    }
    m_buffer.remove(0, offset);
}

void DOpSession::handle(const DOpMessage& message)
{
    const int mid = message.mid();
    if (!m_started && mid != 1)
        return close(QStringLiteral("MID %1 before 0001").arg(mid, 4, 10, QLatin1Char('0')));
    if (!c_clientMids.contains(mid))
        return refuse(mid, CeUnknownMid);
    if (message.revision() != 1)
        return refuse(mid, CeRevisionUnsupported);
    if (handleTool(message) || handleSubscriptions(message))
        return;
    switch (mid) {
    case 1:
        if (m_started)
            return refuse(mid, CeAlreadyConnected);
        m_started = true;
        return send(2, m_server->layouts().communicationStart());
    case 2:  // what one client sends as it leaves
        return close(QString());
    case 3:
        accept(mid);
        return close(QString());
    case 10:
        return send(11, DOpLayouts::programIds(m_server->service()->programs()));
    case 12:
        return handleProgramData(message);
    case 64:
        return handleOldResult(message);
    default:  // 9999
        return send(9999);
    }
}

// The MIDs that read or drive the tool.
bool DOpSession::handleTool(const DOpMessage& message)
{
    switch (message.mid()) {
    case 18:
        selectProgram(message);
        return true;
    case 40:
        if (m_server->service()->toolInfo().isEmpty())
            refuse(40, CeToolInaccessible);
        else
            send(41, m_server->layouts().toolData(m_server->service()->toolInfo()));
        return true;
    case 42:
    case 43:
        runOnTool(message.mid(), QStringLiteral("setLock"), {{QStringLiteral("lock"), message.mid() == 42}},
                  CeCommandFailed);
        return true;
    default:
        return false;
    }
}

bool DOpSession::handleSubscriptions(const DOpMessage& message)
{
    const int mid = message.mid();
    switch (mid) {
    case 14:
    case 17:
        if (m_programsSubscribed == (mid == 14))
            refuse(mid, mid == 14 ? CeProgramsSubscribed : CeProgramsNotSubscribed);
        else
            accept(mid);
        m_programsSubscribed = mid == 14;
        return true;
    case 60: {
        // One client asks for its revision in the data too.
        const bool served = numberOf(message) <= 1;
        if (!served)
            refuse(mid, CeRevisionUnsupported);
        else if (m_resultsSubscribed)
            refuse(mid, CeResultsSubscribed);
        else
            accept(mid);
        m_resultsSubscribed = m_resultsSubscribed || served;
        return true;
    }
    case 63:
        if (m_resultsSubscribed)
            accept(mid);
        else
            refuse(mid, CeResultsNotSubscribed);
        m_resultsSubscribed = false;
        m_results.clear();
        m_inFlight = 0;
        m_ackTimer.stop();
        return true;
    case 62:
        if (m_inFlight) {
            m_inFlight = 0;
            m_ackTimer.stop();
            sendNextResult();
        }
        return true;
    case 16:  // the acknowledgement of a 0015: nothing waits for it
        return true;
    default:
        return false;
    }
}

void DOpSession::handleProgramData(const DOpMessage& message)
{
    const qint64 id = numberOf(message);
    const QVariantList programs = m_server->service()->programs();
    if (id < 0)
        refuse(12, CeInvalidData);
    else if (id < 1 || id > programs.size())
        refuse(12, CeUnknownProgram);
    else
        send(13, DOpLayouts::programData(programs.at(int(id - 1)).toMap()));
}

void DOpSession::handleOldResult(const DOpMessage& message)
{
    qint64 id = numberOf(message);
    if (id < 0)
        return refuse(64, CeInvalidData);
    if (id == 0)
        id = m_server->journal()->lastId();
    const QVariantMap row = m_server->journal()->row(id);
    if (row.isEmpty())
        return refuse(64, CeResultNotFound);
    send(65, m_server->layouts().oldResult(row));
}

void DOpSession::selectProgram(const DOpMessage& message)
{
    const qint64 id = numberOf(message);
    if (id < 0)
        return refuse(18, CeInvalidData);
    if (!m_server->service()->isToolConnected())
        return refuse(18, CeToolInaccessible);
    if (id < 1 || id > m_server->service()->programs().size())
        return refuse(18, CeUnknownProgram);
    runOnTool(18, QStringLiteral("setProgram"), {{QStringLiteral("progId"), int(id)}}, CeProgramNotSet);
}

// 0005 once the tool acknowledged; `refusal` when it did not, 27 when its link is down.
void DOpSession::runOnTool(int mid, const QString& command, const QVariantMap& arguments, int refusal)
{
    DStationService* service = m_server->service();
    if (!service->isToolConnected())
        return refuse(mid, CeToolInaccessible);
    m_waitingForTool = true;
    const QPointer<DOpSession> self(this);
    service->runToolCommand(command, arguments, [self, service, mid, refusal](bool ok, const QString& reason) {
        if (!self)
            return;
        self->m_waitingForTool = false;
        if (ok)
            self->accept(mid);
        else {
            qInfo().noquote() << QStringLiteral("Open Protocol client %1: %2").arg(self->m_peer, reason);
            self->refuse(mid, service->isToolConnected() ? refusal : CeToolInaccessible);
        }
        QMetaObject::invokeMethod(self, &DOpSession::readMessages, Qt::QueuedConnection);
    });
}

void DOpSession::onCommitted(qint64 id)
{
    if (!m_resultsSubscribed)
        return;
    if (m_results.size() >= c_maxQueued)
        return close(QStringLiteral("%1 results not acknowledged").arg(c_maxQueued));
    m_results.enqueue(id);
    sendNextResult();
}

void DOpSession::onProgramSelected(int progId, const QDateTime& when)
{
    if (m_programsSubscribed)
        send(15, DOpLayouts::programSelected(progId, when));
}

void DOpSession::sendNextResult()
{
    while (!m_inFlight && !m_results.isEmpty()) {
        const qint64 id = m_results.dequeue();
        const QByteArray data = m_server->lastResultData(id);
        if (data.isEmpty())
            continue;
        m_inFlight = id;
        m_resends = 0;
        send(61, data);
        m_ackTimer.start();
    }
}

void DOpSession::onAckTimeout()
{
    if (m_resends == c_maxResends)
        return close(QStringLiteral("result %1 not acknowledged after %2 sends").arg(m_inFlight).arg(c_maxResends + 1));
    ++m_resends;
    send(61, m_server->lastResultData(m_inFlight));
    m_ackTimer.start();
}

// Handed to the kernel at once (without blocking): no extra turn of the event loop per message.
void DOpSession::send(int mid, const QByteArray& data)
{
    m_socket->write(DOpMessage(mid, data).bytes());
    m_socket->flush();
    if (m_socket->bytesToWrite() > c_maxBuffered)
        close(QStringLiteral("more than %1 bytes of replies unread").arg(c_maxBuffered));
}

void DOpSession::accept(int mid) { send(5, QByteArray::number(mid).rightJustified(4, '0')); }

// Exactly the MID and the code: one client reads the code as the number after the MID.
void DOpSession::refuse(int mid, int code)
{
    send(4, QByteArray::number(mid).rightJustified(4, '0') + QByteArray::number(code).rightJustified(2, '0'));
}

qint64 DOpSession::numberOf(const DOpMessage& message)
{
    const QByteArray text = message.trimmedData();
    bool ok = !text.isEmpty() && text.size() <= 10;
    for (const char c : text)
        ok = ok && c >= '0' && c <= '9';
    return ok ? text.toLongLong() : -1;
}
