#include "d_interrupt_watcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int s_pipe[2] = {-1, -1};

// Only async-signal-safe work here: one byte into the pipe.
void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
}

} // namespace

DInterruptWatcher::DInterruptWatcher(QObject* parent)
    : QObject(parent)
{
    if (s_pipe[0] < 0 && ::pipe2(s_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &DInterruptWatcher::onNotified);
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

DInterruptWatcher::~DInterruptWatcher()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void DInterruptWatcher::onNotified()
{
    char bytes[16];
    while (::read(s_pipe[0], bytes, sizeof bytes) > 0) {
    }
    emit sigInterrupted();
}
