#include "d_simulator_process.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>

namespace {
constexpr int c_startMs = 10000;
constexpr int c_stopMs = 3000;
} // namespace

DSimulatorProcess::DSimulatorProcess(bool showLogs, QObject* parent)
    : QObject(parent)
{
    if (showLogs)
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    else
        connect(&m_process, &QProcess::readyReadStandardError, this, &DSimulatorProcess::onLogs);
}

// Only the last line is kept: it says why, should the simulator fail to start.
void DSimulatorProcess::onLogs()
{
    const QList<QByteArray> lines = m_process.readAllStandardError().trimmed().split('\n');
    if (!lines.last().isEmpty())
        m_lastLog = QString::fromLocal8Bit(lines.last());
}

DSimulatorProcess::~DSimulatorProcess()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(c_stopMs))
        m_process.kill();
    m_process.waitForFinished(c_stopMs);
}

bool DSimulatorProcess::start(const QStringList& arguments, QString* devicePath, QString* error)
{
    const QString program = QCoreApplication::applicationDirPath() + QStringLiteral("/hytorc-sim");
    if (!QFileInfo(program).isExecutable()) {
        *error = QStringLiteral("tool simulator not found at %1").arg(program);
        return false;
    }
    m_process.start(program, arguments);
    const QDeadlineTimer deadline(c_startMs);
    while (!m_process.canReadLine() && m_process.state() != QProcess::NotRunning && !deadline.hasExpired())
        m_process.waitForReadyRead(int(deadline.remainingTime()));
    if (!m_process.canReadLine()) {
        m_process.waitForFinished(c_stopMs);
        onLogs();
        *error = QStringLiteral("the tool simulator did not start: %1")
                     .arg(m_lastLog.isEmpty() ? m_process.errorString() : m_lastLog);
        return false;
    }
    *devicePath = QString::fromLocal8Bit(m_process.readLine()).trimmed();
    return true;
}
