#include "d_step_progress.h"

#include "d_external_programs.h"
#include "d_message_handler.h"

#include <csignal>

namespace {
// Often enough to see a step that lasts a fraction of a second; /proc is cheap to read.
constexpr std::chrono::milliseconds c_lookEvery(100);
} // namespace

DStepProgress::DStepProgress(const DExternalPrograms& programs, const QString& command)
    : m_programs(programs)
    , m_command(command)
    , m_thread(&DStepProgress::watch, this)
{
}

DStepProgress::~DStepProgress()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

// A step repeated at once (power on again) is said once; again after another step.
void DStepProgress::watch()
{
    // Ctrl-C is the main thread's to take.
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    QString said;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_wake.wait_for(lock, c_lookEvery, [this] { return m_stop; })) {
        const QString line = DExternalPrograms::stepOf(m_command, m_programs.runningProgram());
        if (!line.isEmpty() && line != said)
            DMessageHandler::say(said = line);
    }
}
