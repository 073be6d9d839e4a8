#ifndef D_PTY_DEVICE_H
#define D_PTY_DEVICE_H

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

// A device on a pseudo-terminal: the code under test opens slavePath() as its serial
// port, the test plays the device on the master. Closing it is the device vanishing.
class DPtyDevice : public QObject
{
    Q_OBJECT
public:
    ~DPtyDevice() override;

    bool open(QString* error);
    QString slavePath() const;
    bool write(const QByteArray& bytes);
    QByteArray received() const;
    void close();

private:
    void onReadable();

    int m_master = -1;
    int m_slave = -1;  // held so that the master never hangs up while the port is closed
    QString m_slavePath;
    QSocketNotifier* m_notifier = nullptr;
    QByteArray m_received;
};

#endif // D_PTY_DEVICE_H
