#include "d_simulated_tool.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>

DSimulatedTool::DSimulatedTool()
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
}

DSimulatedTool::~DSimulatedTool()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished(5000);
}

bool DSimulatedTool::start(const QStringList& arguments)
{
    launch(arguments);
    return waitUntilReady();
}

void DSimulatedTool::launch(const QStringList& arguments)
{
    m_process.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/bin/hytorc-sim"),
                    QStringList{QStringLiteral("--link"), linkPath()} + arguments);
}

bool DSimulatedTool::waitUntilReady()
{
    const QDeadlineTimer deadline(10000);
    while (!m_process.canReadLine() && m_process.state() != QProcess::NotRunning && !deadline.hasExpired())
        m_process.waitForReadyRead(100);
    return m_process.canReadLine();
}

QString DSimulatedTool::linkPath() const
{
    return m_dir.filePath(QStringLiteral("tool"));
}

QString DSimulatedTool::recordPath() const
{
    return m_dir.filePath(QStringLiteral("record.json"));
}

QJsonObject DSimulatedTool::stopAndReadRecord()
{
    m_process.terminate();
    m_process.waitForFinished(10000);
    QFile file(recordPath());
    file.open(QIODevice::ReadOnly);
    return QJsonDocument::fromJson(file.readAll()).object();
}

void DSimulatedTool::say(const QByteArray& line)
{
    m_process.write(line + '\n');
    m_process.waitForBytesWritten(1000);
}
