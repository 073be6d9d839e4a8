#ifndef D_INTERRUPT_WATCHER_H
#define D_INTERRUPT_WATCHER_H

#include <QObject>

class QSocketNotifier;

// Turns Ctrl-C (SIGINT) and SIGTERM into a Qt signal, so the event loop can stop a command the host's way.
class DInterruptWatcher : public QObject
{
    Q_OBJECT
public:
    explicit DInterruptWatcher(QObject* parent = nullptr);
    ~DInterruptWatcher() override;

signals:
    void sigInterrupted();

private:
    void onNotified();

    QSocketNotifier* m_notifier = nullptr;
};

#endif // D_INTERRUPT_WATCHER_H
