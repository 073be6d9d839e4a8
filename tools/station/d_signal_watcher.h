#ifndef D_SIGNAL_WATCHER_H
#define D_SIGNAL_WATCHER_H

#include <QObject>

class QSocketNotifier;

// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal, woken through a pipe on the event loop,
// so that the simulator leaves through its normal clean-up.
class DSignalWatcher : public QObject
{
    Q_OBJECT

public:
    // Must run before any thread starts, so that every thread inherits the mask.
    static void blockTerminationSignals();
    // SIGINT, SIGTERM or SIGHUP has arrived, even if the event loop has not yet said so.
    static bool terminationReceived();

    explicit DSignalWatcher(QObject* parent = nullptr);
    ~DSignalWatcher() override;

signals:
    void sigTerminate();

private slots:
    void onSignal();

private:
    int m_fd = -1;
    QSocketNotifier* m_notifier = nullptr;
};

#endif // D_SIGNAL_WATCHER_H
