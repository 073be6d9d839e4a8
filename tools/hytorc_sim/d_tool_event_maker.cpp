#include "d_tool_event_maker.h"

#include "d_tool_state.h"

#include <QDateTime>
#include <QRandomGenerator>

namespace {

const int c_failedRunPercent = 10;

QString decimal(double value)
{
    return QString::number(value, 'f', 3);
}

}  // namespace

DToolEventMaker::DToolEventMaker(DToolState* state, QRandomGenerator* random) : m_state(state), m_random(random)
{
}

QString DToolEventMaker::nextEventLine()
{
    m_state->countCycle();
    const QStringList profile = m_state->activeProfileFields();
    const double target = profile.value(3).toDouble();
    const bool passed = m_random->bounded(100) >= c_failedRunPercent && !m_failNext;
    m_failNext = false;
    // A passed run ends within 2 % of the target, a failed one stops short of it.
    const double spread = passed ? (m_random->generateDouble() - 0.5) * 0.04 : -0.08 - m_random->generateDouble() * 0.1;
    const double angle = profile.value(4).toDouble() + m_random->bounded(20);
    const QDateTime now = QDateTime::currentDateTime();
    const QStringList fields{
        now.toString(QStringLiteral("yyyy-MM-dd")),
        now.toString(QStringLiteral("HH:mm:ss")),
        QString::number(800 + m_random->bounded(1600)),
        QString::number(++m_jobId),
        profile.value(0),
        profile.value(1),
        m_state->toolInfoValue(QStringLiteral("serial")),
        m_state->toolInfoValue(QStringLiteral("cycle_count")),
        decimal(target * 0.1),
        QStringLiteral("0"),
        profile.value(2),
        profile.value(6) == QLatin1String("LH") ? QStringLiteral("CCW") : QStringLiteral("CW"),
        QStringLiteral("0"),
        passed ? QStringLiteral("PASSED") : QStringLiteral("FAILED"),
        decimal(target * (1.0 + spread)),
        decimal(angle),
        QString::number(m_state->batteryPercent()),
        QStringLiteral("0"),
    };
    return fields.join(QLatin1Char(','));
}
