#include "d_step_progress.h"

#include "d_external_programs.h"
#include "d_message_handler.h"

namespace {
// Often enough to see a step that lasts a fraction of a second; /proc is cheap to read.
constexpr int c_lookEveryMs = 100;
} // namespace

DStepProgress::DStepProgress(const DExternalPrograms& programs, const QString& command, QObject* parent)
    : QObject(parent)
    , m_programs(programs)
    , m_command(command)
{
    connect(&m_timer, &QTimer::timeout, this, &DStepProgress::onTick);
    m_timer.start(c_lookEveryMs);
    onTick();
}

// A step repeated (power on or trust again) is said again once another step came between.
void DStepProgress::onTick()
{
    const QString line = DExternalPrograms::stepOf(m_command, m_programs.runningProgram());
    if (line.isEmpty() || line == m_said)
        return;
    m_said = line;
    DMessageHandler::say(line);
}
