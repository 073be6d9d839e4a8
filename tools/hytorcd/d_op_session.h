#ifndef D_OP_SESSION_H
#define D_OP_SESSION_H

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QQueue>
#include <QTimer>

class DOpMessage;
class DOpServer;
class QTcpSocket;

// One Open Protocol client: its requests answered in order, its subscriptions, and the
// results it has yet to acknowledge, by journal id, one 0061 in flight at a time. A slow or
// silent client holds up nothing but itself.
class DOpSession : public QObject
{
    Q_OBJECT
public:
    // `address`: the client's address as the log lines name it.
    DOpSession(QTcpSocket* socket, const QString& address, DOpServer* server);
    ~DOpSession() override;

    QString peer() const { return m_peer; }
    // A result committed to the journal.
    void onCommitted(qint64 id);
    // The active program changed.
    void onProgramSelected(int progId, const QDateTime& when);
    // Closes the connection, saying why when `reason` is not empty.
    void close(const QString& reason);

signals:
    void sigClosed();

private:
    void onReadyRead();
    void readMessages();
    void handle(const DOpMessage& message);
    bool handleTool(const DOpMessage& message);
    bool handleSubscriptions(const DOpMessage& message);
    void handleProgramData(const DOpMessage& message);
    void handleOldResult(const DOpMessage& message);
    void selectProgram(const DOpMessage& message);
    void runOnTool(int mid, const QString& command, const QVariantMap& arguments, int refusal);
    void sendNextResult();
    void onAckTimeout();
    void send(int mid, const QByteArray& data = QByteArray());
    void accept(int mid);
    void refuse(int mid, int code);
    // The request's number (spaces around it allowed), -1 when it is none.
    static qint64 numberOf(const DOpMessage& message);

    QTcpSocket* m_socket;
    DOpServer* m_server;
    QString m_peer;
    QByteArray m_buffer;
    bool m_started = false;
    bool m_closed = false;
    bool m_waitingForTool = false;  // a tool command is running: later requests wait their turn
    bool m_resultsSubscribed = false;
    bool m_programsSubscribed = false;
    QQueue<qint64> m_results;  // committed since the subscription, not yet sent
    qint64 m_inFlight = 0;     // the result sent and not yet acknowledged
    int m_resends = 0;
    QTimer m_idle;
    QTimer m_ackTimer;
};

#endif // D_OP_SESSION_H
