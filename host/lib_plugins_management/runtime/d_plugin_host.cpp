#include "d_plugin_host.h"

#include "d_abstract_plugin.h"
#include "d_instruction_router.h"
#include "i_instruction_target.h"

#include <QDir>
#include <QPluginLoader>

DPluginHost::DPluginHost(DInstructionRouter* router, QObject* parent)
    : QObject(parent)
    , m_router(router)
{
}

DPluginHost::~DPluginHost()
{
    if (m_router) {
        for (const QString& target : qAsConst(m_playedTargets))
            m_router->removeTarget(target);
    }
    for (const auto& instance : qAsConst(m_instances))
        delete instance.data();
    for (QPluginLoader* loader : qAsConst(m_loaders))
        loader->unload();
}

bool DPluginHost::loadPlugins(const QString& directory, QString* error)
{
    const QDir dir(directory);
    const QStringList files = dir.entryList({QStringLiteral("lib*.so")}, QDir::Files, QDir::Name);
    QStringList failures;
    if (!dir.exists())
        failures << QStringLiteral("plug-in directory \"%1\" does not exist").arg(directory);
    else if (files.isEmpty())
        failures << QStringLiteral("no plug-in library (lib*.so) in \"%1\"").arg(directory);
    for (const QString& file : files) {
        QString reason;
        if (!loadPlugin(dir.absoluteFilePath(file), &reason))
            failures << reason;
    }
    if (error)
        *error = failures.join(QStringLiteral("; "));
    return failures.isEmpty();
}

bool DPluginHost::loadPlugin(const QString& path, QString* error)
{
    auto* loader = new QPluginLoader(path, this);
    QObject* root = loader->instance();
    auto* plugin = qobject_cast<IPlugin*>(root);
    if (!plugin) {
        *error = root ? QStringLiteral("%1: its root object is not an IPlugin").arg(path) : loader->errorString();
        loader->unload();
        delete loader;
        return false;
    }
    m_loaders << loader;
    m_roots << plugin;
    return true;
}

QList<IPlugin*> DPluginHost::rootPlugins() const { return m_roots; }

IPlugin* DPluginHost::rootPlugin(const QString& pluginName) const
{
    for (IPlugin* root : m_roots) {
        if (root->pluginName() == pluginName)
            return root;
    }
    return nullptr;
}

DAbstractPlugin* DPluginHost::createInstance(IPlugin* root, const QUuid& objectUuid)
{
    IPlugin* created = root ? root->createInstance(objectUuid) : nullptr;
    auto* instance = dynamic_cast<DAbstractPlugin*>(created);
    if (!instance) {
        delete created;
        return nullptr;
    }
    m_instances << instance;
    instance->setInstructionRouter(m_router);
    instance->initPluginCommands();
    return instance;
}

bool DPluginHost::playTarget(const QString& target, DAbstractPlugin* instance)
{
    auto* targetObject = qobject_cast<IInstructionTarget*>(instance);
    if (!targetObject || !m_router)
        return false;
    m_router->addTarget(target, targetObject);
    m_playedTargets << target;
    return true;
}
