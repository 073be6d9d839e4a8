#ifndef D_STEP_PROGRESS_H
#define D_STEP_PROGRESS_H

#include <QString>

#include <condition_variable>
#include <mutex>
#include <thread>

class DExternalPrograms;

// One line on stderr per step of a long Bluetooth command, as the system programs it
// runs come and go: which step, of how many, and how long it may wait. It looks from a
// thread of its own: a command may hold the event loop while a step runs (startDetection
// waits up to 2 s for its device listing).
class DStepProgress
{
public:
    DStepProgress(const DExternalPrograms& programs, const QString& command);
    ~DStepProgress();

private:
    void watch();

    const DExternalPrograms& m_programs;
    const QString m_command;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    std::thread m_thread;
};

#endif // D_STEP_PROGRESS_H
