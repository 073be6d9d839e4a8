#include "be_maintenance_plugin.h"

#include "property_assign.h"
#include "utilities.h"

#include <QThread>
#include <QtDebug>

namespace {

const char* const c_logSource = "plugins/p_device_hytorc/source/be_maintenance_plugin";
const QString c_success = QStringLiteral("cmd_success");
const QString c_channel = QStringLiteral("channel");

} // namespace

const QMap<QString, int> BeMaintenanceDeviceHytorc::c_commandsChannelsIndex{
    {QStringLiteral("setLock"), 100}, {QStringLiteral("setProgram"), 200}, {QStringLiteral("setDirection"), 300}};

BeMaintenanceDeviceHytorc::BeMaintenanceDeviceHytorc(QObject* parent)
    : DAbstractPluginBackend(QStringLiteral("PlgLibDeviceHytorc"), parent)
{
    connect(this, &DAbstractPluginBackend::abstractBackendInitialized, this, &BeMaintenanceDeviceHytorc::initBackend);
    // A click the queue cannot take now is tried again on a later turn of the event loop.
    connect(this, &BeMaintenanceDeviceHytorc::delayingClickedOnChannel, this,
            &BeMaintenanceDeviceHytorc::clickedOnChannel, Qt::QueuedConnection);
}

BeMaintenanceDeviceHytorc::~BeMaintenanceDeviceHytorc() = default;

void BeMaintenanceDeviceHytorc::updateChannelsValue()
{
    if (hasPendingTreatments())
        return;
    for (int i = 0; i < m_channels.size(); ++i) {
        const QSharedPointer<DHytorcChannel> channel = getChannelAt(i);
        if (!channel) {
            logNullChannel("BeMaintenanceDeviceHytorc::updateChannelsValue: channel is null at index", i, __LINE__);
            continue;
        }
        queueTreatment(i, channel->readCommand(), {{c_channel, channel->id()}});
    }
}

void BeMaintenanceDeviceHytorc::clickedOnChannel(int channelIndex)
{
    const QSharedPointer<DHytorcChannel> channel = getChannelAt(channelIndex);
    if (!channel) {
        logNullChannel("BeMaintenanceDeviceHytorc::clickedOnChannel: channel is null at index", channelIndex, __LINE__);
        return;
    }
    const QVariantMap data{{c_channel, channel->id()}, {QStringLiteral("value"), !channel->value().toBool()}};
    if (!queueTreatment(channelIndex, QString(), data))
        emit delayingClickedOnChannel(channelIndex);
}

void BeMaintenanceDeviceHytorc::setLock(bool lockStatus)
{
    queueAction(QStringLiteral("setLock"), {{QStringLiteral("lock"), int(lockStatus)}});
}

void BeMaintenanceDeviceHytorc::setProgram(const QString& program)
{
    bool ok = false;
    const uint progId = program.toUInt(&ok);
    if (ok)
        queueAction(QStringLiteral("setProgram"), {{QStringLiteral("progId"), progId}});
}

void BeMaintenanceDeviceHytorc::setDirection(bool directionStatus)
{
    queueAction(QStringLiteral("setDirection"), {{QStringLiteral("direction"), int(directionStatus)}});
}

void BeMaintenanceDeviceHytorc::resetBackend()
{
    m_channelsModel.clear();
    m_channels.clear();
}

void BeMaintenanceDeviceHytorc::refreshToolInfo()
{
    sendAnInstruction(QStringLiteral("getToolInfo"), {},
                      InstructionReplyDelegate(this, &BeMaintenanceDeviceHytorc::cbToolInfoReply), -1,
                      InstructionErrorDelegate());
}

QString BeMaintenanceDeviceHytorc::connectionPath() const { return m_connectionPath; }
void BeMaintenanceDeviceHytorc::setConnectionPath(const QString& path)
{
    if (assignChanged(m_connectionPath, path))
        emit connectionPathChanged();
}

QString BeMaintenanceDeviceHytorc::version() const { return m_version; }
void BeMaintenanceDeviceHytorc::setVersion(const QString& version)
{
    if (assignChanged(m_version, version))
        emit versionChanged();
}

OLM_DHytorcChannel* BeMaintenanceDeviceHytorc::statusChannelsModel() { return &m_channelsModel; }
QString BeMaintenanceDeviceHytorc::toolInfo() const { return m_toolInfo; }

void BeMaintenanceDeviceHytorc::loadChannels(const QVariantList& descriptions)
{
    m_channels.clear();
    for (const QVariant& description : descriptions)
        m_channels << DHytorcChannel::create(description.toMap());
    m_channelsModel.setObjects(m_channels);
}

QSharedPointer<DHytorcChannel> BeMaintenanceDeviceHytorc::getChannelAt(int index) const
{
    return m_channels.value(index);
}

void BeMaintenanceDeviceHytorc::initBackend() {}

// A channel's value comes from the reply's "cmd_success": the host's register reads
// answer that way.
bool BeMaintenanceDeviceHytorc::applyTreatmentReply(int treatment, const QString& name, const QVariantMap& reply)
{
    if (name != QLatin1String("getRegister"))
        return reply.value(c_success).toBool();
    const QSharedPointer<DHytorcChannel> channel = getChannelAt(treatment);
    if (!channel) {
        logNullChannel("BeMaintenanceDeviceHytorc::applyTreatmentReply: channel is null at index", treatment, __LINE__);
        return false;
    }
    return channel->setValue(reply.value(c_success));
}

// One "key: value" line per entry, keys in alphabetical order.
bool BeMaintenanceDeviceHytorc::cbToolInfoReply(quint64, const QVariantMap& reply)
{
    if (!reply.value(c_success).toBool())
        return true;
    const QVariantMap information = reply.value(QStringLiteral("deviceInformation")).toMap();
    QStringList lines;
    for (auto it = information.cbegin(); it != information.cend(); ++it)
        lines << it.key() + QStringLiteral(": ") + it.value().toString();
    m_toolInfo = lines.join(QLatin1Char('\n'));
    emit toolInfoChanged();
    return true;
}

void BeMaintenanceDeviceHytorc::queueAction(const QString& name, const QVariantMap& data)
{
    queueTreatment(c_commandsChannelsIndex.value(name), name, data);
}

void BeMaintenanceDeviceHytorc::logNullChannel(const char* message, int index, int line) const
{
    qCritical() << "\n" << getDate() << ";\t" << "Thread =" << QThread::currentThread() << ";\t"
                << "This =" << this << ";\t" << c_logSource << ";\t" << line << ";\t" << message << index;
}
