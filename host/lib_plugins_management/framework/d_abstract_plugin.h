#ifndef D_ABSTRACT_PLUGIN_H
#define D_ABSTRACT_PLUGIN_H

#include "i_plugin.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QVector>

class DAbstractCommand;
class IInstructionRouter;

// Base of every plug-in: identity, a store of named properties that commands share,
// the table of declared commands (prototypes the host copies to run orders) and the
// host's configuration.
class DAbstractPlugin : public QObject, public IPlugin
{
    Q_OBJECT
    Q_INTERFACES(IPlugin)
public:
    // `unique`: the host keeps one instance of the plug-in only (device plug-ins pass false).
    DAbstractPlugin(const QUuid& pluginUuid, const QString& name, IPlugin::Type type, quint64 version,
                    const QUuid& objectUuid, QObject* parent, bool unique);
    ~DAbstractPlugin() override;

    QUuid objectUuid() const override;
    QString getName() const override;
    QUuid pluginUuid() const override;
    QString pluginName() const override;
    quint64 pluginVersion() const override;
    Type pluginType() const override;
    QList<QUuid> compatiblePlugins() const override;
    QString compatibilityString() const override;
    QVariant getProperty(const QString& key, bool* ok) const override;
    QVariant getProperty(const QString& key, const QVariant& defaultValue) const override;
    QStringList getFunctions(bool withStopCommands) const override;
    QVariantMap getFunctionDescription(const QString& name) const override;
    QVariantList getCommandParameters(const QString& name) const override;
    void setMainConfig(QSharedPointer<QJsonObject> config) override;
    QJsonValue getInMainConfig(const QString& key, const QJsonValue& defaultValue, bool* ok) const override;
    QJsonValue getInPluginConfig(const QString& key, const QJsonValue& defaultValue, bool* ok) const override;
    QString getDebugIdentification() const override;
    QSharedPointer<QJsonObject> getMainConfig() const override;
    void setInPluginConfig(const QString& key, const QJsonValue& value) override;
    void setInMainConfig(const QString& key, const QJsonValue& value) override;

    // Stores a named value; with `notify`, sigPropertyChanged tells the host.
    void setProperty(const QString& key, const QVariant& value, bool notify);

    bool isUnique() const;

    // Command table.
    void initAbstractCommands();
    bool declareInstructionCommand(DAbstractCommand* command);
    QStringList commandNames() const;
    DAbstractCommand* declaredCommand(const QString& name) const;

    // Set by the host runtime; commands of this plug-in send their instructions through it.
    void setInstructionRouter(IInstructionRouter* router);
    IInstructionRouter* instructionRouter() const;

signals:
    void sigCommandsInitDone(const QUuid& uuid, const QStringList& names);
    void sigPropertyChanged(const QString& key, const QVariant& value);

private:
    QUuid m_pluginUuid;
    QString m_name;
    Type m_type;
    quint64 m_version;
    QUuid m_objectUuid;
    bool m_unique;
    QVariantMap m_properties;
    QVector<QPointer<DAbstractCommand>> m_commands;
    QSharedPointer<QJsonObject> m_mainConfig;
    QJsonObject m_pluginConfig;
    IInstructionRouter* m_router = nullptr;
};

#endif // D_ABSTRACT_PLUGIN_H
