#include "d_signal_watcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

sigset_t terminationSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

void DSignalWatcher::blockTerminationSignals()
{
    const sigset_t set = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // A reader of our standard output that went away must not kill us.
    std::signal(SIGPIPE, SIG_IGN);
}

DSignalWatcher::DSignalWatcher(QObject* parent) : QObject(parent)
{
    const sigset_t set = terminationSignals();
    m_fd = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (m_fd < 0) {
        qWarning("signalfd failed: SIGINT and SIGTERM are not handled");
        return;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &DSignalWatcher::onSignal);
}

DSignalWatcher::~DSignalWatcher()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

void DSignalWatcher::onSignal()
{
    signalfd_siginfo info;
    if (::read(m_fd, &info, sizeof info) == ssize_t(sizeof info)) {
        qInfo("signal %u: stopping", info.ssi_signo);
        emit sigTerminate();
    }
}
