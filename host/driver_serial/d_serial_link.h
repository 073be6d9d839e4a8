#ifndef D_SERIAL_LINK_H
#define D_SERIAL_LINK_H

#include <QByteArray>
#include <QObject>
#include <QSerialPort>

class DSerialSettings;

// The serial port itself: opens, writes, reports what it reads, and notices the
// device vanishing (the port is then closed, ready to be opened again).
class DSerialLink : public QObject
{
    Q_OBJECT
public:
    explicit DSerialLink(QObject* parent = nullptr);

    // Closes first when open. False with "<path>: <reason>" in *error.
    bool open(const DSerialSettings& settings, QString* error);
    // Sends what is still buffered, then closes.
    void close(const QString& reason);
    bool isOpen() const;
    // False with the reason in *error (may be null) when the port is closed or refuses.
    bool write(const QByteArray& bytes, QString* error);

signals:
    void sigBytesRead(const QByteArray& bytes);
    void sigBytesWritten(const QByteArray& bytes);
    void sigPortStateChanged(bool open, const QString& reason);
    // The device went away; sigPortStateChanged(false, ...) came just before.
    void sigPortLost(const QString& devicePath, const QString& cause);

private:
    void onReadyRead();
    void onErrorOccurred(QSerialPort::SerialPortError error);
    void shutDown(const QString& reason);
    QString portError() const;

    QSerialPort m_port;
    QString m_devicePath;  // as given: QSerialPort::portName() drops the "/dev/"
};

#endif // D_SERIAL_LINK_H
