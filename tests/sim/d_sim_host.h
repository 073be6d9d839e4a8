#ifndef D_SIM_HOST_H
#define D_SIM_HOST_H

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QQueue>
#include <QSerialPort>
#include <QStringList>

// The host's side, done by hand: runs the simulator binary, opens the port it prints
// and cuts the bytes that come back into frames.
class DSimHost : public QObject
{
    Q_OBJECT

public:
    static constexpr int c_waitMs = 10000;

    ~DSimHost() override;

    // Starts hytorc-sim with `arguments` and waits for the port path on its first line.
    bool start(const QStringList& arguments);
    QString printedPath() const { return m_printedPath; }
    QProcess& process() { return m_process; }
    // Opens `path` (default: the printed one) as the host's serial port.
    bool openPort(const QString& path = QString());
    QSerialPort& port() { return m_port; }

    void send(const QByteArray& bytes);
    void sendHeader();
    void sendRequest(const QByteArray& text);
    void sendAck();
    // Header, then `request`, each acknowledged by the tool with the ACK frame.
    bool beginTransaction(const QByteArray& request);
    void say(const QByteArray& line);

    // The next frame from the tool; empty when none came within `timeoutMs`.
    QByteArray nextFrame(int timeoutMs = c_waitMs);
    // True when no frame comes for `ms` (for what must not happen).
    bool quietFor(int ms);
    // The reply of the current request: every frame's payload lines, acknowledging each.
    QStringList readReply(int* frames = nullptr);
    QByteArray rawReceived() const { return m_raw; }

private slots:
    void onReadyRead();

private:
    QProcess m_process;
    QSerialPort m_port;
    QString m_printedPath;
    QByteArray m_raw;
    QByteArray m_buffer;
    QQueue<QByteArray> m_frames;
    int m_sequence = 0;
};

#endif // D_SIM_HOST_H
