#include "d_op_session.h"

#include "d_message_handler.h"
#include "d_op_identifier_layouts.h"
#include "d_op_message.h"
#include "d_op_program_layouts.h"
#include "d_op_result_layouts.h"
#include "d_op_server.h"
#include "d_op_session_layouts.h"
#include "d_op_time_layouts.h"
#include "d_op_tool_layouts.h"
#include "d_result_journal.h"
#include "d_station_part.h"
#include "d_station_service.h"

#include <QPointer>
#include <QTcpSocket>
#include <QtDebug>

namespace {

constexpr int c_maxResends = 3;
// Past this many unacknowledged results the client is not keeping up: it is closed and reads
// the journal again after it comes back (0064).
constexpr int c_maxQueued = 10000;
// Replies a client may leave unread before it is closed; pushes are not paced by its reading.
constexpr int c_maxUnread = 1 << 20;
// Requests are read and answered in slices, one slice each c_sliceGapMs at most: a flood costs
// the station a bounded share of a core, and nothing while its replies wait unread past
// c_pauseUnread; a client's backlog of a hundred requests still clears in about 60 ms.
constexpr int c_slice = 8;
constexpr int c_sliceGapMs = 5;
constexpr int c_readBuffer = 64 * 1024;
constexpr int c_pauseUnread = 64 * 1024;
// A connection that has not sent 0001 this long holds a slot for nothing.
constexpr int c_startMs = 5000;
constexpr int c_anyRevision = 999;
const QString c_toolSource = QStringLiteral("Open Protocol");

enum EnError {
    CeInvalidData = 1,
    CeUnknownProgram = 2,
    CeProgramNotSet = 3,
    CeProgramNotRunning = 4,
    CeBusy = 16,
    CeToolInaccessible = 27,
    CeCommandFailed = 79,
    CeAlreadyConnected = 96,
    CeRevisionUnsupported = 97,
    CeUnknownMid = 99,
};

// A subscription's MIDs and its two errors (Open Protocol R2.8.0, p.74-76).
struct DSubscriptionMids {
    int unsubscribe;
    int data;
    int exists;
    int missing;
};

const QHash<int, DSubscriptionMids>& subscriptionMids()
{
    static const QHash<int, DSubscriptionMids> all{
        {14, {17, 15, 13, 14}}, {21, {24, 22, 90, 91}}, {51, {54, 52, 6, 7}},
        {60, {63, 61, 9, 10}},  {70, {73, 71, 11, 12}},
    };
    return all;
}

int subscriptionOf(int unsubscribeMid)
{
    const QHash<int, DSubscriptionMids>& all = subscriptionMids();
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        if (it.value().unsubscribe == unsubscribeMid)
            return it.key();
    }
    return 0;
}

} // namespace

// A new MID is one row here and, when it needs one, one handler.
const QHash<int, DOpSession::DMid>& DOpSession::mids()
{
    static const QHash<int, DMid> all{
        {1, {1, &DOpSession::onStart}},
        {2, {c_anyRevision, &DOpSession::onLeave}},
        {3, {1, &DOpSession::onStop}},
        {4, {c_anyRevision, &DOpSession::onAccepted}},
        {5, {c_anyRevision, &DOpSession::onAccepted}},
        {10, {1, &DOpSession::onProgramIds}},
        {12, {1, &DOpSession::onProgramData}},
        {14, {DOpProgramLayouts::c_selectedRevisions, &DOpSession::onSubscribe}},
        {16, {c_anyRevision, &DOpSession::onNothing}},
        {17, {c_anyRevision, &DOpSession::onUnsubscribe}},
        {18, {1, &DOpSession::onSelectProgram}},
        {19, {1, &DOpSession::onBatchSize}},
        {20, {1, &DOpSession::onBatchReset}},
        {21, {1, &DOpSession::onSubscribe}},
        {23, {c_anyRevision, &DOpSession::onAnswerPlainly}},
        {24, {c_anyRevision, &DOpSession::onUnsubscribe}},
        {40, {1, &DOpSession::onToolData}},
        {42, {1, &DOpSession::onLock}},
        {43, {1, &DOpSession::onLock}},
        {50, {1, &DOpSession::onIdentifier}},
        {51, {DOpIdentifierLayouts::c_revisions, &DOpSession::onSubscribe}},
        {53, {c_anyRevision, &DOpSession::onNothing}},
        {54, {c_anyRevision, &DOpSession::onUnsubscribe}},
        {60, {DOpResultLayouts::c_revisions, &DOpSession::onSubscribe}},
        {62, {c_anyRevision, &DOpSession::onResultAcknowledged}},
        {63, {c_anyRevision, &DOpSession::onUnsubscribe}},
        {64, {DOpResultLayouts::c_revisions, &DOpSession::onOldResult}},
        {70, {DOpAlarmLayouts::c_revisions, &DOpSession::onSubscribe}},
        {72, {c_anyRevision, &DOpSession::onNothing}},
        {73, {c_anyRevision, &DOpSession::onUnsubscribe}},
        {75, {c_anyRevision, &DOpSession::onNothing}},
        {77, {c_anyRevision, &DOpSession::onNothing}},
        {80, {1, &DOpSession::onReadTime}},
        {82, {1, &DOpSession::onSetTime}},
        {127, {1, &DOpSession::onAnswerPlainly}},
        {9999, {c_anyRevision, &DOpSession::onAnswerPlainly}},
    };
    return all;
}

DOpSession::DOpSession(QTcpSocket* socket, const QString& address, bool busy, DOpServer* server)
    : QObject(server)
    , m_socket(socket)
    , m_server(server)
    , m_peer(QStringLiteral("%1 port %2").arg(address).arg(socket->peerPort()))
    , m_busy(busy)
{
    socket->setParent(this);
    socket->setReadBufferSize(c_readBuffer);
    // Small messages answered one by one: none waits for the one before it to be acknowledged.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_idle.setSingleShot(true);
    m_idle.setInterval(server->idleMs());
    m_startTimer.setSingleShot(true);
    m_startTimer.setInterval(qMin(c_startMs, server->idleMs()));
    m_ackTimer.setSingleShot(true);
    m_ackTimer.setInterval(server->ackTimeoutMs());
    connect(&m_idle, &QTimer::timeout, this, &DOpSession::onIdleCheck);
    // A client let in only to hear error 16 was said as refused already.
    connect(&m_startTimer, &QTimer::timeout, this, [this] {
        close(m_busy ? QString() : QStringLiteral("no 0001 within %1 s").arg(m_startTimer.interval() / 1000));
    });
    connect(&m_ackTimer, &QTimer::timeout, this, &DOpSession::onAckTimeout);
    connect(socket, &QTcpSocket::readyRead, this, &DOpSession::onReadyRead);
    connect(socket, &QTcpSocket::bytesWritten, this, &DOpSession::onBytesWritten);
    connect(socket, &QTcpSocket::disconnected, this, [this] { close(QString()); });
    m_lastExchange.start();
    m_idle.start();
    m_startTimer.start();
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
    m_startTimer.stop();
    m_ackTimer.stop();
    // The replies before the reason still go out; what the client sends after it is dropped.
    m_socket->flush();
    m_socket->abort();
    emit sigClosed();
}

// The idle timer is not restarted per message (a timer's restart costs more than the message):
// when it fires, it waits again for what is left of the interval since the last message.
void DOpSession::onIdleCheck()
{
    const qint64 left = m_server->idleMs() - m_lastExchange.elapsed();
    if (left <= 0)
        return close(QStringLiteral("no message for %1 s").arg(m_server->idleMs() / 1000));
    m_idle.start(int(left));
}

void DOpSession::onReadyRead()
{
    if (!m_sliceQueued)
        readMessages();
}

// A client paused for its unread replies goes on on the next turn, never inside a write of ours.
void DOpSession::onBytesWritten()
{
    if (m_paused && m_socket->bytesToWrite() < c_pauseUnread) {
        m_paused = false;
        scheduleSlice();
    }
}

void DOpSession::scheduleSlice(int delayMs)
{
    if (m_sliceQueued)
        return;
    m_sliceQueued = true;
    QTimer::singleShot(delayMs, Qt::PreciseTimer, this, &DOpSession::readMessages);
}

// Requests are answered in order: while a tool command runs, the ones after it wait here. One
// slice per turn of the event loop; the rest waits for the next turn, or for the client to read.
void DOpSession::readMessages()
{
    m_sliceQueued = false;
    if (m_buffer.size() < c_readBuffer)
        m_buffer += m_socket->read(c_readBuffer - m_buffer.size());
    int offset = 0;
    int handled = 0;
    DOpMessage message;
    QString error;
    while (!m_waitingForTool && !m_closed && handled < c_slice) {
        if (m_socket->bytesToWrite() >= c_pauseUnread) {
            m_paused = true;
            break;
        }
        const DOpMessage::EnRead outcome = DOpMessage::read(m_buffer, &offset, &message, &error);
        if (outcome == DOpMessage::CeMalformed)
            return close(QStringLiteral("malformed message (%1)").arg(error));
        if (outcome == DOpMessage::CeIncomplete)
            break;
        handle(message);
        ++handled;
    }
    m_buffer.remove(0, offset);
    if (handled == c_slice && !m_closed)
        scheduleSlice(c_sliceGapMs);
}

void DOpSession::handle(const DOpMessage& message)
{
    const int mid = message.mid();
    if (!m_started && mid != 1)
        return close(QStringLiteral("MID %1 before 0001").arg(mid, 4, 10, QLatin1Char('0')));
    m_lastExchange.start();
    const auto it = mids().constFind(mid);
    if (it == mids().cend())
        return refuse(mid, CeUnknownMid);
    if (message.revision() > it->revisions)
        return refuse(mid, CeRevisionUnsupported);
    // What the request makes the station push (an identifier's 0052, a program's 0015) goes after its answer.
    m_answering = true;
    (this->*it->handler)(message);
    m_answering = false;
    if (!m_waitingForTool)
        releaseHeld();
}

void DOpSession::releaseHeld()
{
    const QList<QByteArray> held = m_held;
    m_held.clear();
    for (const QByteArray& bytes : held)
        write(bytes);
}

void DOpSession::onStart(const DOpMessage&)
{
    if (m_busy) {
        refuse(1, CeBusy);
        return close(QString());
    }
    if (m_started)
        return refuse(1, CeAlreadyConnected);
    m_started = true;
    m_startTimer.stop();
    send(2, DOpSessionLayouts::communicationStart(m_server->settings()));
}

// What one client sends as it leaves.
void DOpSession::onLeave(const DOpMessage&) { close(QString()); }

void DOpSession::onStop(const DOpMessage&)
{
    accept(3);
    close(QString());
}

// A client may acknowledge pushed data with 0005 (or 0004) naming its MID.
void DOpSession::onAccepted(const DOpMessage& message)
{
    if (message.data().left(4) == "0061")
        onResultAcknowledged(message);
}

void DOpSession::onNothing(const DOpMessage&) {}

// 9999 is mirrored; 0023 and 0127 are accepted (no job runs here: the start-up sequence goes on).
void DOpSession::onAnswerPlainly(const DOpMessage& message)
{
    if (message.mid() == 9999)
        send(9999);
    else
        accept(message.mid());
}

void DOpSession::onProgramIds(const DOpMessage&)
{
    send(11, DOpProgramLayouts::programIds(m_server->service()->programs()));
}

void DOpSession::onProgramData(const DOpMessage& message)
{
    const qint64 id = numberOf(message);
    const QVariantList programs = m_server->service()->programs();
    if (id < 0)
        refuse(12, CeInvalidData);
    else if (id < 1 || id > programs.size())
        refuse(12, CeUnknownProgram);
    else
        send(13, DOpProgramLayouts::programData(programs.at(int(id - 1)).toMap(), m_server->part()->programSettings(int(id))));
}

void DOpSession::onSelectProgram(const DOpMessage& message)
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

// Parameter set id (3 digits) and batch size (2 digits, 01-99) (Open Protocol R2.8.0, p.90).
void DOpSession::onBatchSize(const DOpMessage& message)
{
    const QByteArray data = message.trimmedData();
    QString error;
    if (numberOf(message) < 0 || data.size() != 5)
        error = QStringLiteral("batch size \"%1\": a parameter set id of 3 digits and a size of 2 are expected")
                    .arg(QString::fromLatin1(data.left(20)));
    if (!error.isEmpty() || !m_server->part()->setBatchSize(data.left(3).toInt(), data.mid(3).toInt(), &error)) {
        DMessageHandler::say(QStringLiteral("Open Protocol client %1: %2; refused").arg(m_peer, error));
        return refuse(19, CeInvalidData);
    }
    accept(19);
}

void DOpSession::onBatchReset(const DOpMessage& message)
{
    const qint64 id = numberOf(message);
    if (id < 0)
        return refuse(20, CeInvalidData);
    if (id != m_server->service()->currentProgId())
        return refuse(20, CeProgramNotRunning);
    m_server->part()->resetBatch(QStringLiteral("Open Protocol client %1 (0020)").arg(m_peer));
    accept(20);
}

void DOpSession::onToolData(const DOpMessage&)
{
    const QVariantMap info = m_server->service()->toolInfo();
    if (info.isEmpty())
        refuse(40, CeToolInaccessible);
    else
        send(41, DOpToolLayouts::toolData(info, m_server->settings()));
}

void DOpSession::onLock(const DOpMessage& message)
{
    runOnTool(message.mid(), QStringLiteral("setLock"), {{QStringLiteral("lock"), message.mid() == 42}}, CeCommandFailed);
}

// The VIN, up to 25 characters (Open Protocol R2.8.0, p.130); the station says why it refuses one.
void DOpSession::onIdentifier(const DOpMessage& message)
{
    QString error;
    if (!m_server->part()->identify(1, QString::fromLatin1(message.trimmedData()), c_toolSource, &error)) {
        DMessageHandler::say(QStringLiteral("Open Protocol client %1: identifier refused: %2").arg(m_peer, error));
        return refuse(50, 8);
    }
    accept(50);
}

void DOpSession::onResultAcknowledged(const DOpMessage&)
{
    if (!m_inFlight)
        return;
    m_inFlight = 0;
    m_ackTimer.stop();
    sendNextResult();
}

void DOpSession::onOldResult(const DOpMessage& message)
{
    qint64 id = numberOf(message);
    if (id < 0)
        return refuse(64, CeInvalidData);
    if (id == 0)
        id = m_server->journal()->lastId();
    const QByteArray data = m_server->oldResultData(id, message.revision());
    if (data.isEmpty())
        return refuse(64, 15);
    send(65, data, message.revision());
}

void DOpSession::onReadTime(const DOpMessage&) { send(81, DOpTimeLayouts::time(QDateTime::currentDateTime())); }

// The host's clock belongs to its time service, never to a client of ours.
void DOpSession::onSetTime(const DOpMessage&)
{
    DMessageHandler::say(QStringLiteral("Open Protocol client %1: set time (0082) refused; the host's clock is set by its time service")
                             .arg(m_peer));
    refuse(82, CeCommandFailed);
}

void DOpSession::onSubscribe(const DOpMessage& message)
{
    const int mid = message.mid();
    int revision = message.revision();
    // One client asks for the result's revision in the data instead of the header.
    if (mid == 60 && revision == 1 && numberOf(message) > 1)
        revision = int(numberOf(message));
    if (revision > mids().value(mid).revisions)
        return refuse(mid, CeRevisionUnsupported);
    DSubscription& subscription = m_subscriptions[mid];
    if (subscription.on)
        return refuse(mid, subscriptionMids().value(mid).exists);
    subscription = {true, revision, message.noAck()};
    accept(mid);
    pushFirst(mid);
}

void DOpSession::onUnsubscribe(const DOpMessage& message)
{
    const int subscribeMid = subscriptionOf(message.mid());
    DSubscription& subscription = m_subscriptions[subscribeMid];
    if (!subscription.on)
        return refuse(message.mid(), subscriptionMids().value(subscribeMid).missing);
    subscription.on = false;
    accept(message.mid());
    if (subscribeMid == 60) {
        m_results.clear();
        m_inFlight = 0;
        m_ackTimer.stop();
    }
}

// What follows a subscription's 0005 at once (Open Protocol R2.8.0, p.85, p.91, p.166).
void DOpSession::pushFirst(int subscribeMid)
{
    const int revision = m_subscriptions.value(subscribeMid).revision;
    if (subscribeMid == 14)
        push(14, 15, m_server->programSelectedData(revision, m_server->service()->currentProgId(), m_server->lastProgramChange()));
    else if (subscribeMid == 21)
        push(21, 22, QByteArray::number(m_server->part()->isLockedAtBatchDone() ? 1 : 0));
    else if (subscribeMid == 70)
        send(76, DOpAlarmLayouts::status(revision, m_server->isToolAlarmActive(), m_server->toolAlarm()), revision);
}

// 0005 once the tool acknowledged; `refusal` when it did not, 27 when its link is down. Pushes
// that come meanwhile go after the answer.
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
        self->releaseHeld();
        self->sendNextResult();
        self->scheduleSlice();
    });
}

void DOpSession::onCommitted(qint64 id)
{
    if (!m_subscriptions.value(60).on)
        return;
    if (m_results.size() >= c_maxQueued)
        return close(QStringLiteral("%1 results not acknowledged").arg(c_maxQueued));
    m_results.enqueue(id);
    sendNextResult();
}

void DOpSession::onProgramSelected(int progId, const QDateTime& when)
{
    push(14, 15, m_server->programSelectedData(m_subscriptions.value(14).revision, progId, when));
}

void DOpSession::onIdentifiersChanged()
{
    push(51, 52, DOpIdentifierLayouts::identifiers(m_subscriptions.value(51).revision, m_server->part()->identifiers()));
}

void DOpSession::onLockAtBatchDoneChanged(bool locked) { push(21, 22, QByteArray::number(locked ? 1 : 0)); }

void DOpSession::onAlarm(const DOpAlarmLayouts::DAlarm& alarm, bool raised)
{
    if (raised)
        push(70, 71, DOpAlarmLayouts::alarm(m_subscriptions.value(70).revision, alarm));
    else
        push(70, 74, DOpAlarmLayouts::acknowledged(alarm), 1);
}

// With the no-ack flag every result goes at once; without it, one waits for its 0062.
void DOpSession::sendNextResult()
{
    const DSubscription subscription = m_subscriptions.value(60);
    while (!m_waitingForTool && !m_inFlight && !m_results.isEmpty() && !m_closed) {
        const qint64 id = m_results.dequeue();
        const QByteArray data = m_server->lastResultData(id, subscription.revision);
        if (data.isEmpty())
            continue;
        send(61, data, subscription.revision);
        if (subscription.noAck)
            continue;
        m_inFlight = id;
        m_resends = 0;
        m_ackTimer.start();
    }
}

void DOpSession::onAckTimeout()
{
    if (m_resends == c_maxResends)
        return close(QStringLiteral("result %1 not acknowledged after %2 sends").arg(m_inFlight).arg(c_maxResends + 1));
    ++m_resends;
    const int revision = m_subscriptions.value(60).revision;
    send(61, m_server->lastResultData(m_inFlight, revision), revision);
    m_ackTimer.start();
}

void DOpSession::send(int mid, const QByteArray& data, int revision) { write(DOpMessage(mid, data, revision).bytes()); }

void DOpSession::push(int subscribeMid, int mid, const QByteArray& data, int revision)
{
    const DSubscription subscription = m_subscriptions.value(subscribeMid);
    if (!subscription.on)
        return;
    const QByteArray bytes = DOpMessage(mid, data, revision ? revision : subscription.revision).bytes();
    if (m_waitingForTool || m_answering)
        m_held << bytes;
    else
        write(bytes);
}

// Handed to the kernel at once (without blocking): no extra turn of the event loop per message.
// A message sent counts as one exchanged for the idle rule.
void DOpSession::write(const QByteArray& bytes)
{
    if (m_closed)
        return;
    m_socket->write(bytes);
    m_socket->flush();
    m_lastExchange.start();
    if (m_socket->bytesToWrite() > c_maxUnread)
        close(QStringLiteral("more than %1 bytes of replies unread").arg(c_maxUnread));
}

void DOpSession::accept(int mid) { send(5, DOpSessionLayouts::accepted(mid)); }

void DOpSession::refuse(int mid, int code) { send(4, DOpSessionLayouts::refused(mid, code)); }

qint64 DOpSession::numberOf(const DOpMessage& message)
{
    const QByteArray text = message.trimmedData();
    bool ok = !text.isEmpty() && text.size() <= 10;
    for (const char c : text)
        ok = ok && c >= '0' && c <= '9';
    return ok ? text.toLongLong() : -1;
}
