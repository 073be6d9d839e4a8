#include "p_device_hytorc.h"

#include "be_maintenance_plugin.h"
#include "d_cmd_check_serial_id.h"
#include "d_cmd_connect_to_device.h"
#include "d_cmd_get_preset_data.h"
#include "d_cmd_get_tool_info.h"
#include "d_cmd_list_programs.h"
#include "d_cmd_listen.h"
#include "d_cmd_set_keep_alive_fonction.h"
#include "d_cmd_set_level_access.h"
#include "d_cmd_set_lock.h"
#include "d_cmd_set_ping_interval.h"
#include "d_cmd_set_program.h"
#include "d_cmd_start_detection.h"
#include "d_hytorc_channel.h"
#include "utilities.h"

#include <QQmlEngine>
#include <QtDebug>

namespace {

const char* const c_pluginUuid = "{4b2d6999-ab8e-4a72-bfb0-c962b68e7bda}";
const char* const c_pluginName = "Plugin Device Hytorc";
const char* const c_qmlModule = "PlgLibDeviceHytorc";
// "Devi" packed into 32 bits: the host sorts the plug-in with its device plug-ins.
constexpr quint64 c_pluginType = 1147500137;

// The commands the plug-in offers, in the order the host lists them.
using PrototypeFactory = DAbstractCommand* (*)(QObject* plugin);
const PrototypeFactory c_commandFactories[] = {
    &DCmdConnectToDevice::createPrototype,
    &DCmdListen::createPrototype,
    &DCmdGetPresetData::createPrototype,
    &DCmdStartDetection::createPrototype,
    &DCmdSetPingInterval::createPrototype,
    &DCmdListPrograms::createPrototype,
    &DCmdSetProgram::createPrototype,
    &DCmdSetLock::createPrototype,
    &DCmdSetLevelAccess::createPrototype,
    &DCmdSetKeepAliveFonction::createPrototype,
    &DCmdCheckSerialId::createPrototype,
    &DCmdGetToolInfo::createPrototype,
};

} // namespace

PDeviceHytorc::PDeviceHytorc(const QUuid& objectUuid, QObject* parent)
    : DAbstractPlugin(QUuid(c_pluginUuid), QString::fromLatin1(c_pluginName), IPlugin::Type(c_pluginType),
                      versionFromString(QStringLiteral("1.0"), nullptr, QLatin1Char('.')), objectUuid, parent,
                      false)
{
    // Registering again in later instances is harmless.
    qmlRegisterType<BeMaintenanceDeviceHytorc>(c_qmlModule, 1, 0, "BeMaintenanceDeviceHytorc");
    setProperty(QStringLiteral("typeName"), QVariant(QString("")), false);
    traceLifecycle();
    qmlRegisterType<DHytorcChannel>(c_qmlModule, 1, 0, "DHytorcChannel");
}

PDeviceHytorc::~PDeviceHytorc()
{
    traceLifecycle();
}

void PDeviceHytorc::initPluginCommands()
{
    initAbstractCommands();
    for (PrototypeFactory factory : c_commandFactories)
        declareInstructionCommand(factory(this));
    emit sigCommandsInitDone(objectUuid(), commandNames());
}

IPlugin* PDeviceHytorc::createInstance(const QUuid& objectUuid) const
{
    return new PDeviceHytorc(objectUuid, nullptr);
}

const char* PDeviceHytorc::pluginSubTypeName() const { return ""; }

QUuid PDeviceHytorc::getPluginId() { return QUuid(c_pluginUuid); }
const char* PDeviceHytorc::getPluginName() { return c_pluginName; }
quint64 PDeviceHytorc::getPluginType() { return c_pluginType; }

void PDeviceHytorc::traceLifecycle() const
{
    qDebug() << objectName() << QStringLiteral("0x%1").arg(quintptr(this), 8, 16, QLatin1Char('0'))
             << objectUuid() << pluginName();
}
