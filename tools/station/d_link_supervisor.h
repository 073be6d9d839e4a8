#ifndef D_LINK_SUPERVISOR_H
#define D_LINK_SUPERVISOR_H

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

class DInstructionRouter;

// The tool's serial link as the command line sees it, whoever opened it (hytorc, or a
// command that binds the tool): its loss said at once in one line, the port reopened
// for a bounded time when the next command needs it. A Bluetooth tool that walks out
// of range comes back this way.
// It also tells whether the tool answers on the open port, for a panel's header.
class DLinkSupervisor : public QObject
{
    Q_OBJECT
public:
    enum EnLinkState { CeLinkClosed, CeLinkOpen, CeLinkConnected, CeLinkSilent, CeLinkLost, CeLinkReconnecting };
    Q_ENUM(EnLinkState)

    // `driver`: the serial driver's plug-in object (signals sigPortStateChanged, sigPortLost).
    DLinkSupervisor(DInstructionRouter* router, QObject* driver, QObject* parent = nullptr);

    bool open(const QString& path, QString* error);
    void close();
    // The port went away and has not been opened since.
    bool isLost() const { return m_lost; }
    // Tries to reopen the last port opened every few hundred ms until it opens, `seconds` have passed
    // or abort() is called. Says "link back" when it opened; else false with the last reason.
    bool reconnect(double seconds, QString* failure);
    void abort();
    // "link lost N time(s), S s without it"; empty while it never was.
    QString lossSummary() const;
    // What to check when the port did not come back.
    static QString notBackCheck();
    // Connected: the port is open and the tool answered the last frame that wanted an answer.
    EnLinkState state() const { return m_state; }
    // "connected", "link lost", ...: the state in the user's words.
    static QString stateText(EnLinkState state);

signals:
    // The driver has let go of the port and ended its listeners. Emitted queued: the
    // port's own error handling has finished before anyone reacts.
    void sigLinkLost();
    // A command used the port before any was opened; without a receiver, the failure is said as any other.
    void sigNoPortOpen();
    void sigStateChanged(DLinkSupervisor::EnLinkState state);

private slots:
    void onPortStateChanged(bool open, const QString& reason);
    void onPortLost(const QString& devicePath, const QString& cause);
    void onBytesWritten(const QByteArray& bytes);
    void onBytesRead();

private:
    bool openOnce(const QString& path, QString* error);
    void onInstructionFailed(const QString& target, const QString& instruction, const QString& reason);
    void setState(EnLinkState state);

    DInstructionRouter* m_router;
    QString m_openedPath;  // the last port the driver opened
    bool m_lost = false;
    bool m_aborted = false;
    int m_losses = 0;
    qint64 m_downMs = 0;  // of the gaps already closed
    QElapsedTimer m_down;  // since the last loss
    EnLinkState m_state = CeLinkClosed;
    QTimer m_answerWait;  // from a frame that wants an answer to the tool's next bytes
};

#endif // D_LINK_SUPERVISOR_H
