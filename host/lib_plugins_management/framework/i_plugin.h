#ifndef I_PLUGIN_H
#define I_PLUGIN_H

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariant>
#include <QVariantMap>
#include <QtPlugin>

// Interface of every plug-in the host loads.
class IPlugin
{
public:
    // Plug-in kinds: four characters packed into 32 bits, first character in the high byte.
    enum Type : quint32 {
        CeTypeUnknown = 0,
        CeTypeDevice = 0x44657669,  // "Devi"
        CeTypeDriver = 0x44726976,  // "Driv"
    };

    virtual ~IPlugin() = default;

    virtual QUuid objectUuid() const = 0;
    virtual QString getName() const = 0;
    virtual QUuid pluginUuid() const = 0;
    virtual QString pluginName() const = 0;
    virtual quint64 pluginVersion() const = 0;
    virtual Type pluginType() const = 0;
    virtual QList<QUuid> compatiblePlugins() const = 0;
    virtual QString compatibilityString() const = 0;
    virtual QVariant getProperty(const QString& key, bool* ok) const = 0;
    virtual QVariant getProperty(const QString& key, const QVariant& defaultValue) const = 0;
    virtual QStringList getFunctions(bool withStopCommands) const = 0;
    virtual QVariantMap getFunctionDescription(const QString& name) const = 0;
    virtual QVariantList getCommandParameters(const QString& name) const = 0;
    virtual void setMainConfig(QSharedPointer<QJsonObject> config) = 0;
    virtual QJsonValue getInMainConfig(const QString& key, const QJsonValue& defaultValue, bool* ok) const = 0;
    virtual QJsonValue getInPluginConfig(const QString& key, const QJsonValue& defaultValue, bool* ok) const = 0;
    virtual QString getDebugIdentification() const = 0;
    virtual QSharedPointer<QJsonObject> getMainConfig() const = 0;
    virtual void setInPluginConfig(const QString& key, const QJsonValue& value) = 0;
    virtual void setInMainConfig(const QString& key, const QJsonValue& value) = 0;
    virtual void initPluginCommands() = 0;
    virtual IPlugin* createInstance(const QUuid& objectUuid) const = 0;
    virtual const char* pluginSubTypeName() const = 0;
};

#define IPlugin_iid "fr.vexo.rd.box.IPlugin"
Q_DECLARE_INTERFACE(IPlugin, IPlugin_iid)

#endif // I_PLUGIN_H
