#ifndef D_LINK_SUPERVISOR_H
#define D_LINK_SUPERVISOR_H

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <functional>

class DInstructionRouter;

// The tool's serial link as the command line sees it: opened and closed through the
// driver, its loss said at once in one line, and reopened for a bounded time when the
// next command needs it. A Bluetooth tool that walks out of range comes back this way.
class DLinkSupervisor : public QObject
{
    Q_OBJECT
public:
    // `driver`: the serial driver's plug-in object (signal sigPortLost).
    DLinkSupervisor(DInstructionRouter* router, QObject* driver, QObject* parent = nullptr);

    // `pathSource` names the port on each try: a simulator reopens on a new one after a drop.
    bool open(const std::function<QString()>& pathSource, QString* error);
    void close();
    bool isUp() const { return m_up; }
    // Tries to reopen the port every few hundred ms until it opens, `seconds` have passed
    // or abort() is called. Says "link back" when it opened; else false with the last reason.
    bool reconnect(double seconds, QString* failure);
    void abort();
    // "link lost N time(s), S s without it"; empty while it never was.
    QString lossSummary() const;

signals:
    // The driver has let go of the port and ended its listeners. Emitted queued: the
    // port's own error handling has finished before anyone reacts.
    void sigLinkLost();

private slots:
    void onPortLost(const QString& devicePath, const QString& cause);

private:
    bool openOnce(QString* error);
    void onInstructionFailed(const QString& target, const QString& instruction, const QString& reason);

    DInstructionRouter* m_router;
    std::function<QString()> m_pathSource;
    bool m_up = false;
    bool m_aborted = false;
    int m_losses = 0;
    qint64 m_downMs = 0;  // of the gaps already closed
    QElapsedTimer m_down;  // since the last loss
};

#endif // D_LINK_SUPERVISOR_H
