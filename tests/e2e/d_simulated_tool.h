#ifndef D_SIMULATED_TOOL_H
#define D_SIMULATED_TOOL_H

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// The tool simulator as a child process, reached through a symlink of the test's own,
// so the same path works again after the simulator has dropped and remade its port.
class DSimulatedTool
{
public:
    DSimulatedTool() { m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel); }
    ~DSimulatedTool()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(5000);
    }

    // Starts the simulator with `arguments`; false when it gave no port within 10 s.
    bool start(const QStringList& arguments)
    {
        launch(arguments);
        return waitUntilReady();
    }
    // start() in two halves, so that many simulators can come up side by side.
    void launch(const QStringList& arguments)
    {
        m_process.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/bin/hytorc-sim"),
                        QStringList{QStringLiteral("--link"), linkPath()} + arguments);
    }
    bool waitUntilReady()
    {
        const QDeadlineTimer deadline(10000);
        while (!m_process.canReadLine() && m_process.state() != QProcess::NotRunning && !deadline.hasExpired())
            m_process.waitForReadyRead(100);
        return m_process.canReadLine();
    }
    QString linkPath() const { return m_dir.filePath(QStringLiteral("tool")); }
    // Writes a line to the simulator's standard input ("event", "drop").
    void say(const QByteArray& line)
    {
        m_process.write(line + '\n');
        m_process.waitForBytesWritten(1000);
    }
    // Where "--record" arguments should point.
    QString recordPath() const { return m_dir.filePath(QStringLiteral("record.json")); }
    // Ends the simulator the way Ctrl-C does; its record is then complete.
    QJsonObject stopAndReadRecord()
    {
        m_process.terminate();
        m_process.waitForFinished(10000);
        QFile file(recordPath());
        file.open(QIODevice::ReadOnly);
        return QJsonDocument::fromJson(file.readAll()).object();
    }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
};

#endif // D_SIMULATED_TOOL_H
