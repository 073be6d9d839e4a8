#include "d_test_plugin.h"

#include "d_test_command.h"

DTestPlugin::DTestPlugin()
    : DAbstractPlugin(QUuid::createUuid(), QStringLiteral("Plugin Test"), IPlugin::CeTypeDevice, 1, QUuid(), nullptr,
                      false)
{
}

void DTestPlugin::initPluginCommands()
{
    initAbstractCommands();
    declareInstructionCommand(new DTestCommand(QStringLiteral("finishAtOnce"), {}, DTestCommand::CeFinishAtOnce, this));
    declareInstructionCommand(new DTestCommand(QStringLiteral("refuse"), {}, DTestCommand::CeRefuse, this));
    declareInstructionCommand(new DTestCommand(QStringLiteral("follow"), QStringLiteral("stopFollow"),
                                               DTestCommand::CeRunUntilStopped, this));
    declareInstructionCommand(new DTestCommand(QStringLiteral("listenDriver"), {}, DTestCommand::CeListenDriver, this));
}

IPlugin* DTestPlugin::createInstance(const QUuid&) const { return new DTestPlugin; }

const char* DTestPlugin::pluginSubTypeName() const { return "test"; }
