#ifndef D_OP_SESSION_H
#define D_OP_SESSION_H

#include "d_op_alarm_layouts.h"

#include <QByteArray>
#include <QDateTime>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QQueue>
#include <QTimer>

class DOpMessage;
class DOpServer;
class QTcpSocket;

// One Open Protocol client: its requests answered in order, a few per turn of the event loop,
// its subscriptions, and the results it has yet to acknowledge, by journal id, one 0061 in
// flight at a time unless it set the no-ack flag. A slow, silent or flooding client holds up
// nothing but itself.
class DOpSession : public QObject
{
    Q_OBJECT
public:
    // `address`: the client's address as the log lines name it. A `busy` session answers the
    // client's 0001 with 0004 error 16 (Open Protocol R2.8.0, p.44) and closes.
    DOpSession(QTcpSocket* socket, const QString& address, bool busy, DOpServer* server);
    ~DOpSession() override;

    QString peer() const { return m_peer; }
    bool isBusy() const { return m_busy; }
    // A result committed to the journal.
    void onCommitted(qint64 id);
    void onProgramSelected(int progId, const QDateTime& when);
    void onIdentifiersChanged();
    void onLockAtBatchDoneChanged(bool locked);
    // An alarm raised, or (`raised` false) over.
    void onAlarm(const DOpAlarmLayouts::DAlarm& alarm, bool raised);
    // Closes the connection, saying why when `reason` is not empty.
    void close(const QString& reason);

signals:
    void sigClosed();

private:
    using DHandler = void (DOpSession::*)(const DOpMessage&);
    struct DMid {
        int revisions;  // served 1 to this
        DHandler handler;
    };
    // A subscription's state: the revision of its data and whether the client acknowledges it.
    struct DSubscription {
        bool on = false;
        int revision = 1;
        bool noAck = false;
    };
    static const QHash<int, DMid>& mids();

    void onIdleCheck();
    void onReadyRead();
    void onBytesWritten();
    void scheduleSlice(int delayMs = 0);
    void readMessages();
    void handle(const DOpMessage& message);
    void onStart(const DOpMessage& message);
    void onLeave(const DOpMessage& message);
    void onStop(const DOpMessage& message);
    void onAccepted(const DOpMessage& message);
    void onNothing(const DOpMessage& message);
    void onAnswerPlainly(const DOpMessage& message);
    void onProgramIds(const DOpMessage& message);
    void onProgramData(const DOpMessage& message);
    void onSelectProgram(const DOpMessage& message);
    void onBatchSize(const DOpMessage& message);
    void onBatchReset(const DOpMessage& message);
    void onToolData(const DOpMessage& message);
    void onLock(const DOpMessage& message);
    void onIdentifier(const DOpMessage& message);
    void onResultAcknowledged(const DOpMessage& message);
    void onOldResult(const DOpMessage& message);
    void onReadTime(const DOpMessage& message);
    void onSetTime(const DOpMessage& message);
    void onSubscribe(const DOpMessage& message);
    void onUnsubscribe(const DOpMessage& message);
    void pushFirst(int subscribeMid);
    void releaseHeld();
    void runOnTool(int mid, const QString& command, const QVariantMap& arguments, int refusal);
    void sendNextResult();
    void onAckTimeout();
    void send(int mid, const QByteArray& data = QByteArray(), int revision = 1);
    // `revision` 0: the subscription's.
    void push(int subscribeMid, int mid, const QByteArray& data, int revision = 0);
    void write(const QByteArray& bytes);
    void accept(int mid);
    void refuse(int mid, int code);
    // The request's number (spaces around it allowed), -1 when it is none.
    static qint64 numberOf(const DOpMessage& message);

    QTcpSocket* m_socket;
    DOpServer* m_server;
    QString m_peer;
    bool m_busy;
    QByteArray m_buffer;
    bool m_started = false;
    bool m_closed = false;
    bool m_sliceQueued = false;
    bool m_paused = false;  // its replies wait unread: its requests wait too
    bool m_waitingForTool = false;  // a tool command is running: later requests and pushes wait their turn
    bool m_answering = false;       // a request is being answered: its pushes wait for the answer
    QList<QByteArray> m_held;       // pushes held until the tool command's answer is out
    QHash<int, DSubscription> m_subscriptions;  // by the subscribing MID
    QQueue<qint64> m_results;  // committed since the subscription, not yet sent
    qint64 m_inFlight = 0;     // the result sent and not yet acknowledged
    int m_resends = 0;
    QTimer m_idle;
    QElapsedTimer m_lastExchange;  // since the last whole message, either way
    QTimer m_startTimer;
    QTimer m_ackTimer;
};

#endif // D_OP_SESSION_H
