#include "d_signal_watcher.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Write end of the pipe that the handler wakes the event loop through.
volatile int s_wakeFd = -1;
volatile sig_atomic_t s_received = 0;

sigset_t terminationSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    return set;
}

// A hang-up ends the program as SIGTERM does, unless it was started to ignore it (nohup).
bool hangUpIgnored()
{
    struct sigaction current = {};
    sigaction(SIGHUP, nullptr, &current);
    return current.sa_handler == SIG_IGN;
}

void onTerminationSignal(int signalNumber)
{
    const int savedErrno = errno;
    s_received = 1;
    const unsigned char number = static_cast<unsigned char>(signalNumber);
    if (::write(s_wakeFd, &number, 1) < 0) {
        // Nothing to do from a signal handler: the pipe is full or gone.
    }
    errno = savedErrno;
}

}  // namespace

bool DSignalWatcher::terminationReceived() { return s_received != 0; }

void DSignalWatcher::blockTerminationSignals()
{
    const sigset_t set = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // A reader of our standard output that went away must not kill us.
    std::signal(SIGPIPE, SIG_IGN);
}

// Only the thread that builds the watcher takes the signals, through a handler: the programs
// it starts then inherit them unblocked (a blocked SIGTERM would defeat `timeout`).
DSignalWatcher::DSignalWatcher(QObject* parent) : QObject(parent)
{
    int fds[2];
    if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) {
        qWarning("pipe2 failed: SIGINT and SIGTERM are not handled");
        return;
    }
    m_fd = fds[0];
    s_wakeFd = fds[1];
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    if (!hangUpIgnored())
        sigaction(SIGHUP, &action, nullptr);
    const sigset_t set = terminationSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &DSignalWatcher::onSignal);
}

DSignalWatcher::~DSignalWatcher()
{
    if (m_fd < 0)
        return;
    const sigset_t set = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const int wakeFd = s_wakeFd;
    s_wakeFd = -1;
    ::close(wakeFd);
    ::close(m_fd);
}

void DSignalWatcher::onSignal()
{
    unsigned char number = 0;
    if (::read(m_fd, &number, 1) == 1) {
        qInfo("signal %u: stopping", unsigned(number));
        emit sigTerminate();
    }
}
