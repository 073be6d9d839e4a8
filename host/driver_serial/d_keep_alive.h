#ifndef D_KEEP_ALIVE_H
#define D_KEEP_ALIVE_H

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include <functional>

class DSerialLink;

// Keeps the link to the tool alive: after a period of silence (no byte read or
// written) it sends a heartbeat frame, and acknowledges the tool's answer to it.
class DKeepAlive : public QObject
{
    Q_OBJECT
public:
    // `transactionInFlight` tells when a heartbeat would cut into a tool command.
    DKeepAlive(DSerialLink* link, std::function<bool()> transactionInFlight, QObject* parent = nullptr);

    // Replaces the heartbeat; it runs whenever the port is open.
    void configure(const QByteArray& frame, const QByteArray& responseFrame, const QByteArray& ackFrame,
                   int silenceMs);
    // A chunk read without the tool's answer to the last heartbeat, which is acknowledged.
    // An answer cut between two reads is found too: its beginning waits for the next read.
    QByteArray filter(const QByteArray& chunk);

private:
    QByteArray holdAnswerStart(QByteArray data);
    void onActivity();
    void onPortStateChanged();
    void onSilence();

    DSerialLink* m_link;
    std::function<bool()> m_transactionInFlight;
    QByteArray m_frame;
    QByteArray m_responseFrame;
    QByteArray m_ackFrame;
    QTimer m_silence;
    bool m_awaitingResponse = false;
    QByteArray m_held;  // the first bytes of an answer that the next read may complete
};

#endif // D_KEEP_ALIVE_H
