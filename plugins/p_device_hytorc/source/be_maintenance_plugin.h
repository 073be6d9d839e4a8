#ifndef BE_MAINTENANCE_PLUGIN_H
#define BE_MAINTENANCE_PLUGIN_H

#include "d_abstract_plugin_backend.h"
#include "olm_d_hytorc_channel.h"

#include <QMap>

// Backend of the tool's maintenance panel. It never talks to the tool: lock, program
// and direction go out as treatments that the host turns into the plug-in's commands,
// the tool's identification as a "getToolInfo" instruction.
class BeMaintenanceDeviceHytorc : public DAbstractPluginBackend
{
    Q_OBJECT
    Q_PROPERTY(QString connectionPath READ connectionPath WRITE setConnectionPath NOTIFY connectionPathChanged)
    Q_PROPERTY(QString version READ version WRITE setVersion NOTIFY versionChanged)
    Q_PROPERTY(OLM_DHytorcChannel* statusChannelsModel READ statusChannelsModel NOTIFY channelsModelChanged)
    Q_PROPERTY(QString toolInfo READ toolInfo NOTIFY toolInfoChanged)
public:
    // Treatment number of each action; numbers below 100 are channel indexes.
    static const QMap<QString, int> c_commandsChannelsIndex;

    explicit BeMaintenanceDeviceHytorc(QObject* parent = nullptr);
    ~BeMaintenanceDeviceHytorc() override;

    Q_INVOKABLE void updateChannelsValue();
    Q_INVOKABLE void clickedOnChannel(int channelIndex);
    Q_INVOKABLE void setLock(bool lockStatus);
    Q_INVOKABLE void setProgram(const QString& program);
    Q_INVOKABLE void setDirection(bool directionStatus);
    Q_INVOKABLE void resetBackend();
    Q_INVOKABLE void refreshToolInfo();
    // The host's channel descriptions (DHytorcChannel::create); an empty one keeps its
    // place as a null channel, so that indexes stay those of the host's list. Invokable:
    // the host reaches it by name.
    Q_INVOKABLE void loadChannels(const QVariantList& descriptions);

    QString connectionPath() const;
    void setConnectionPath(const QString& path);
    QString version() const;
    void setVersion(const QString& version);
    OLM_DHytorcChannel* statusChannelsModel();
    QString toolInfo() const;

    QSharedPointer<DHytorcChannel> getChannelAt(int index) const;

    void initBackend();
    bool applyTreatmentReply(int treatment, const QString& name, const QVariantMap& reply) override;
    bool cbToolInfoReply(quint64 instructionId, const QVariantMap& reply);

signals:
    void connectionPathChanged();
    void versionChanged();
    void channelsModelChanged();
    void toolInfoChanged();
    void delayingClickedOnChannel(int channelIndex);

private:
    void queueAction(const QString& name, const QVariantMap& data);
    void logNullChannel(const char* message, int index, int line) const;

    QString m_connectionPath;
    QString m_version;
    OLM_DHytorcChannel m_channelsModel;
    QList<QSharedPointer<DHytorcChannel>> m_channels;
    QString m_toolInfo;
};

#endif // BE_MAINTENANCE_PLUGIN_H
