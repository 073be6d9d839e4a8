#ifndef HYTORC_HCP_COMM_H
#define HYTORC_HCP_COMM_H

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>

// Runs one HCP transaction at a time for the command that owns it: link header,
// request, acknowledgements, reply lines, tool-initiated events, retries.
// It never touches the link: it asks for writes (sigWriteRequest) and is fed the
// driver's chunks (onRawData).
class HytorcHcpComm : public QObject
{
    Q_OBJECT
public:
    explicit HytorcHcpComm(QObject* owner);

    void sendRequest(const QString& request);
    void onRawData(const QByteArray& data, int number);
    void reset();

signals:
    void sigDataReady(QStringList payloadLines);
    void sigEventReady(QStringList payloadLines);
    void sigError(QString errorMsg);
    void sigJunkFrameDetected();
    void sigWriteRequest(QByteArray packet);

private slots:
    void sendUicHeader();
    void sendDataPayload();
    void onRetryTimeout();

private:
    void processFrame(const QByteArray& frame);
    // Cuts the frames out of rawBuffer and hands each to processFrame; safe
    // against a reset or a new chunk arriving from a slot connected to our signals.
    void drainRawBuffer();
    void clearRawBuffer();
    void clearResponse();
    // The overflow rule's end: critical log line, buffer emptied, "Raw buffer overflow".
    void failOnOverflow(int total);

    QPointer<QObject> owner;
    QString pendingRequest;
    QByteArray rawBuffer;
    QStringList responseLines;
    int responseBytes = 0;           // reply payload bytes behind responseLines
    QStringList eventLines;
    int state = 0;
    int sequence = 0;
    int retryCount = 0;
    int lastChunkNumber = -1;
    QTimer retryTimer;

    // Extraction bookkeeping (not part of the protocol state).
    int rawPos = 0;                  // bytes at the front of rawBuffer already consumed
    quint64 rawEpoch = 0;            // bumped whenever rawBuffer is emptied
    bool draining = false;           // drainRawBuffer is on the stack
    bool appendedWhileDraining = false;
};

#endif // HYTORC_HCP_COMM_H
