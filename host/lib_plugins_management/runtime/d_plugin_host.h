#ifndef D_PLUGIN_HOST_H
#define D_PLUGIN_HOST_H

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QUuid>

class DAbstractPlugin;
class DInstructionRouter;
class IPlugin;
class QPluginLoader;

// Loads the plug-in libraries of a directory, makes plug-in instances wired to the
// instruction router, and lets instances play instruction targets ("driver").
class DPluginHost : public QObject
{
    Q_OBJECT
public:
    explicit DPluginHost(DInstructionRouter* router, QObject* parent = nullptr);
    // Deletes the instances it created before unloading the libraries.
    ~DPluginHost() override;

    // Every lib*.so of `directory`; each root object must implement IPlugin. A library
    // that fails does not keep the others from loading: false, and *error lists them.
    bool loadPlugins(const QString& directory, QString* error);
    QList<IPlugin*> rootPlugins() const;
    // By pluginName(), e.g. "Plugin Device Hytorc"; null when none.
    IPlugin* rootPlugin(const QString& pluginName) const;

    // createInstance on the root, router set, then initPluginCommands(). Owned by the host;
    // null when the root does not make DAbstractPlugin instances.
    DAbstractPlugin* createInstance(IPlugin* root, const QUuid& objectUuid);
    // The instance plays `target` for instructions; false when it is no IInstructionTarget.
    bool playTarget(const QString& target, DAbstractPlugin* instance);

private:
    bool loadPlugin(const QString& path, QString* error);

    QPointer<DInstructionRouter> m_router;
    QList<QPluginLoader*> m_loaders;
    QList<IPlugin*> m_roots;
    QList<QPointer<DAbstractPlugin>> m_instances;
    QStringList m_playedTargets;
};

#endif // D_PLUGIN_HOST_H
