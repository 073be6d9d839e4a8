#include "d_simulator_process.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QRegularExpression>

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

// Only the last line is kept: it says why, should the simulator fail to start. Its
// prefix goes: the reason is told under ours.
void DSimulatorProcess::onLogs()
{
    const QList<QByteArray> lines = m_process.readAllStandardError().trimmed().split('\n');
    if (!lines.last().isEmpty())
        m_lastLog = QString::fromLocal8Bit(lines.last()).remove(QRegularExpression(QStringLiteral("^hytorc-sim: ")));
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
    const QString link = m_linkDir.filePath(QStringLiteral("tool"));
    // It ends with us, however we end, and takes the link's folder with it.
    m_process.start(program, arguments
                                 + QStringList{QStringLiteral("--link"), link, QStringLiteral("--remove-link-folder"),
                                               QStringLiteral("--parent-pid"),
                                               QString::number(QCoreApplication::applicationPid())});
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
    *devicePath = link;
    return true;
}

bool DSimulatorProcess::refusedArguments() const
{
    return m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::NormalExit
        && m_process.exitCode() == 2;
}
