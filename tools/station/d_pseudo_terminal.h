#ifndef D_PSEUDO_TERMINAL_H
#define D_PSEUDO_TERMINAL_H

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;

// The tool's end of the serial link: a pseudo-terminal master whose slave is the
// port the host opens. One slave descriptor stays open here so that the host may
// close and reopen the port without the terminal hanging up.
class DPseudoTerminal : public QObject
{
    Q_OBJECT

public:
    explicit DPseudoTerminal(QObject* parent = nullptr);
    ~DPseudoTerminal() override;

    bool open(QString* error);
    QString slavePath() const { return m_slavePath; }
    // Non-blocking: the number of bytes taken (0 when the terminal is full), -1 on failure.
    qint64 write(const QByteArray& bytes);
    // Points a symlink at `linkPath` to the slave (made aside and renamed over the old one, so
    // that the path never misses); false when `linkPath` is something else than a symlink.
    bool linkAt(const QString& linkPath, QString* error) const;
    // Closes both ends: for the host, the port vanishes.
    void close();

signals:
    void sigBytesReceived(const QByteArray& bytes);

private slots:
    void onReadable();

private:
    bool openSlave(QString* error);

    int m_master = -1;
    int m_slave = -1;
    QString m_slavePath;
    QSocketNotifier* m_notifier = nullptr;
};

#endif // D_PSEUDO_TERMINAL_H
