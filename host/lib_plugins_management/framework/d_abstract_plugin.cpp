#include "d_abstract_plugin.h"

#include "d_abstract_command.h"

#include <QJsonObject>

DAbstractPlugin::DAbstractPlugin(const QUuid& pluginUuid, const QString& name, IPlugin::Type type,
                                 quint64 version, const QUuid& objectUuid, QObject* parent, bool unique)
    : QObject(parent)
    , m_pluginUuid(pluginUuid)
    , m_name(name)
    , m_type(type)
    , m_version(version)
    , m_objectUuid(objectUuid)
    , m_unique(unique)
    , m_mainConfig(QSharedPointer<QJsonObject>::create())
{
    setObjectName(name);
}

// The declared commands are Qt children: QObject's destructor deletes them.
DAbstractPlugin::~DAbstractPlugin() = default;

QUuid DAbstractPlugin::objectUuid() const { return m_objectUuid; }

QString DAbstractPlugin::getName() const
{
    return m_name + QLatin1Char(' ') + m_objectUuid.toString();
}

QUuid DAbstractPlugin::pluginUuid() const { return m_pluginUuid; }
QString DAbstractPlugin::pluginName() const { return m_name; }
quint64 DAbstractPlugin::pluginVersion() const { return m_version; }
IPlugin::Type DAbstractPlugin::pluginType() const { return m_type; }
QList<QUuid> DAbstractPlugin::compatiblePlugins() const { return {}; }
QString DAbstractPlugin::compatibilityString() const { return QString(); }

QVariant DAbstractPlugin::getProperty(const QString& key, bool* ok) const
{
    const auto it = m_properties.constFind(key);
    if (ok)
        *ok = it != m_properties.cend();
    return it != m_properties.cend() ? it.value() : QVariant();
}

QVariant DAbstractPlugin::getProperty(const QString& key, const QVariant& defaultValue) const
{
    return m_properties.value(key, defaultValue);
}

QStringList DAbstractPlugin::getFunctions(bool withStopCommands) const
{
    QStringList names = commandNames();
    if (withStopCommands) {
        for (const auto& command : m_commands) {
            if (command && command->isRecurrent() && !names.contains(command->stopCommandName()))
                names << command->stopCommandName();
        }
    }
    return names;
}

QVariantMap DAbstractPlugin::getFunctionDescription(const QString& name) const
{
    const DAbstractCommand* command = declaredCommand(name);
    return command ? command->fullDescription() : QVariantMap();
}

QVariantList DAbstractPlugin::getCommandParameters(const QString& name) const
{
    return getFunctionDescription(name).value(QStringLiteral("parameters")).toList();
}

void DAbstractPlugin::setMainConfig(QSharedPointer<QJsonObject> config)
{
    m_mainConfig = config ? config : QSharedPointer<QJsonObject>::create();
}

QJsonValue DAbstractPlugin::getInMainConfig(const QString& key, const QJsonValue& defaultValue, bool* ok) const
{
    const bool found = m_mainConfig->contains(key);
    if (ok)
        *ok = found;
    return found ? m_mainConfig->value(key) : defaultValue;
}

QJsonValue DAbstractPlugin::getInPluginConfig(const QString& key, const QJsonValue& defaultValue, bool* ok) const
{
    const bool found = m_pluginConfig.contains(key);
    if (ok)
        *ok = found;
    return found ? m_pluginConfig.value(key) : defaultValue;
}

QString DAbstractPlugin::getDebugIdentification() const
{
    return QStringLiteral("%1 %2 (%3)").arg(m_name, m_objectUuid.toString(), m_pluginUuid.toString());
}

QSharedPointer<QJsonObject> DAbstractPlugin::getMainConfig() const { return m_mainConfig; }

void DAbstractPlugin::setInPluginConfig(const QString& key, const QJsonValue& value)
{
    m_pluginConfig.insert(key, value);
}

void DAbstractPlugin::setInMainConfig(const QString& key, const QJsonValue& value)
{
    m_mainConfig->insert(key, value);
}

void DAbstractPlugin::setProperty(const QString& key, const QVariant& value, bool notify)
{
    m_properties.insert(key, value);
    if (notify)
        emit sigPropertyChanged(key, value);
}

bool DAbstractPlugin::isUnique() const { return m_unique; }

// A new declaration round replaces the previous set of commands.
void DAbstractPlugin::initAbstractCommands()
{
    for (const auto& command : qAsConst(m_commands))
        delete command.data();
    m_commands.clear();
}

bool DAbstractPlugin::declareInstructionCommand(DAbstractCommand* command)
{
    if (!command || declaredCommand(command->commandName()))
        return false;
    command->setParent(this);
    m_commands.append(command);
    return true;
}

QStringList DAbstractPlugin::commandNames() const
{
    QStringList names;
    for (const auto& command : m_commands) {
        if (command)
            names << command->commandName();
    }
    return names;
}

DAbstractCommand* DAbstractPlugin::declaredCommand(const QString& name) const
{
    for (const auto& command : m_commands) {
        if (command && command->commandName() == name)
            return command.data();
    }
    return nullptr;
}

void DAbstractPlugin::setInstructionRouter(IInstructionRouter* router) { m_router = router; }
IInstructionRouter* DAbstractPlugin::instructionRouter() const { return m_router; }
