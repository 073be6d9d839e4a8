#ifndef D_SIMULATED_TOOL_H
#define D_SIMULATED_TOOL_H

#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// The tool simulator as a child process, reached through a symlink of the test's own,
// so the same path works again after the simulator has dropped and remade its port.
class DSimulatedTool
{
public:
    DSimulatedTool();
    ~DSimulatedTool();

    // Starts the simulator with `arguments`; false when it gave no port within 10 s.
    bool start(const QStringList& arguments);
    // start() in two halves, so that many simulators can come up side by side.
    void launch(const QStringList& arguments);
    bool waitUntilReady();
    QString linkPath() const;
    // Writes a line to the simulator's standard input ("event", "drop").
    void say(const QByteArray& line);
    // Where "--record" arguments should point.
    QString recordPath() const;
    // Ends the simulator the way Ctrl-C does; its record is then complete.
    QJsonObject stopAndReadRecord();

private:
    QTemporaryDir m_dir;
    QProcess m_process;
};

#endif // D_SIMULATED_TOOL_H
