#include "d_cmd_set_keep_alive_fonction.h"

#include "d_hytorc_setting_command.h"
#include "hytorc_hcp_constants.h"
#include "hytorc_hcp_frame.h"

namespace {
constexpr int c_instructionTimeout = 2000;
constexpr int c_silenceMs = 20000;
} // namespace

DCmdSetKeepAliveFonction::DCmdSetKeepAliveFonction(const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(QStringLiteral("setKeepAliveFonction"), arguments, parent)
{
    setDescription(QStringLiteral("Set HYTORC binary keep-alive (Using NACK as heartbeat)"));
    DHytorcSettingCommand::declareSettingResults(this);
}

DAbstractCommand* DCmdSetKeepAliveFonction::createPrototype(QObject* plugin)
{
    return new DCmdSetKeepAliveFonction(QVariantMap(), plugin);
}

// The heartbeat frame carries both the link and the command flag, which the tool
// answers with a NACK.
QVariantMap DCmdSetKeepAliveFonction::heartbeat()
{
    return {{QStringLiteral("frame"), HytorcHcpFrame::buildFrame(c_cmdGetStateBattery, true, true, true, 0)},
            {QStringLiteral("responseFrame"), HytorcHcpFrame::buildNackFrame()},
            {QStringLiteral("ackFrame"), HytorcHcpFrame::buildAckFrame()},
            {QStringLiteral("timeout"), c_silenceMs}};
}

bool DCmdSetKeepAliveFonction::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    keepAliveInstructionId =
        addInstruction(QStringLiteral("driver"), QStringLiteral("setKeepAliveFonction"), heartbeat(),
                       c_instructionTimeout,
                       InstructionReplyDelegate(this, &DCmdSetKeepAliveFonction::receiveKeepAliveReply));
    return true;
}

// A stop before the driver's answer closes the instruction: no late reply reaches an ended command.
void DCmdSetKeepAliveFonction::finishTheCommand(bool& ok)
{
    if (keepAliveInstructionId != 0) {
        stopTheInstruction(keepAliveInstructionId);
        keepAliveInstructionId = 0;
    }
    commandFinish(ok);
}

QSharedPointer<ICommand> DCmdSetKeepAliveFonction::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdSetKeepAliveFonction(arguments, parent()));
}

// The outcome is the driver's, in the results; the command itself always ends well.
bool DCmdSetKeepAliveFonction::receiveKeepAliveReply(quint64 instructionId, QVariantMap replyData)
{
    Q_UNUSED(instructionId)
    keepAliveInstructionId = 0;
    DHytorcSettingCommand::publishSettingResults(this, replyData.value(QStringLiteral("cmd_success"), false).toBool());
    bool ok = true;
    finishTheCommand(ok);
    return true;
}
