#ifndef D_TOOL_EVENT_MAKER_H
#define D_TOOL_EVENT_MAKER_H

#include <QString>

class DToolState;
class QRandomGenerator;

// Makes the result line of one tightening run with the active profile: date, time,
// duration, job id, profile, mode, ..., status, final torque, angle, battery.
class DToolEventMaker
{
public:
    DToolEventMaker(DToolState* state, QRandomGenerator* random);

    // Counts a cycle on the tool and returns the run's comma-separated fields.
    QString nextEventLine();
    // The next run fails (stops short of its target), whatever chance says.
    void failNext() { m_failNext = true; }

private:
    DToolState* m_state;
    QRandomGenerator* m_random;
    int m_jobId = 0;
    bool m_failNext = false;
};

#endif // D_TOOL_EVENT_MAKER_H
