#ifndef D_WORKSTATION_H
#define D_WORKSTATION_H

#include <QObject>
#include <QVariantMap>

class DAbstractPlugin;
class DCommandRunner;
class DInstructionRouter;
class DPluginHost;

// The host side that the tools set up: the plug-ins of a directory, one device
// instance, one serial driver instance playing "driver", the router and the runner.
class DWorkstation : public QObject
{
    Q_OBJECT
public:
    // A command tells its outcome in "cmd_success" (or "doneOk", the Bluetooth commands);
    // the end flag only when it has neither.
    static bool commandSucceeded(bool finishedOk, const QVariantMap& results);

    explicit DWorkstation(QObject* parent = nullptr);
    // Commands still running are ended before the plug-ins go.
    ~DWorkstation() override;

    // False with a one-line reason when the plug-ins cannot be loaded or instantiated.
    bool setUp(const QString& pluginDirectory, QString* error);

    DInstructionRouter* router() const { return m_router; }
    DCommandRunner* runner() const { return m_runner; }
    DAbstractPlugin* device() const { return m_device; }
    DAbstractPlugin* driver() const { return m_driver; }

private:
    DInstructionRouter* m_router;
    DPluginHost* m_host;
    DCommandRunner* m_runner;
    DAbstractPlugin* m_device = nullptr;
    DAbstractPlugin* m_driver = nullptr;
};

#endif // D_WORKSTATION_H
