#include "d_hytorc_tool_command.h"

#include "hytorc_hcp_comm.h"

namespace {
const QString c_driver = QStringLiteral("driver");
constexpr int c_instructionTimeout = 2000;
} // namespace

DHytorcToolCommand::DHytorcToolCommand(const QString& name, const QVariantMap& arguments, QObject* parent)
    : DHytorcToolCommand(name, QString(), arguments, parent)
{
}

DHytorcToolCommand::DHytorcToolCommand(const QString& name, const QString& stopName,
                                       const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(name, stopName, arguments, parent)
    , hcpComm(new HytorcHcpComm(this))
{
    connect(hcpComm, &HytorcHcpComm::sigDataReady, this, [this](const QStringList& payloadLines) {
        if (!ended)
            onDataReady(payloadLines);
    });
    connect(hcpComm, &HytorcHcpComm::sigError, this, [this](const QString& errorMsg) {
        if (!ended)
            onError(errorMsg);
    });
    connect(hcpComm, &HytorcHcpComm::sigWriteRequest, this,
            [this](const QByteArray& packet) { forwardWrite(packet); });
}

// Ends once: a stop from the host after the command has ended by itself changes nothing.
void DHytorcToolCommand::finishTheCommand(bool& ok)
{
    if (ended)
        return;
    ended = true;
    resetEngine();
    if (listenInstructionId != 0) {
        ok = stopTheInstruction(listenInstructionId);
        listenInstructionId = 0;
    }
    commandFinish(ok);
}

bool DHytorcToolCommand::receiveEventData(quint64 instructionId, QVariantMap replyData)
{
    Q_UNUSED(instructionId)
    if (hcpComm && !ended)
        hcpComm->onRawData(replyData.value(QStringLiteral("frame")).toByteArray(),
                           replyData.value(QStringLiteral("number"), 0).toInt());
    return true;
}

// The outcome travels in "cmd_success"; the end itself went well. Each command
// says what its failure means; the base adds nothing to the log.
void DHytorcToolCommand::onError(QString errorMsg)
{
    Q_UNUSED(errorMsg)
    commandUpdateResult(QStringLiteral("cmd_success"), false);
    finishCommand();
}

void DHytorcToolCommand::startTransaction(const QVariantMap& listenParameters, const QString& request)
{
    listenInstructionId = addInstruction(c_driver, QStringLiteral("listenEventsData"), listenParameters,
                                         c_instructionTimeout,
                                         InstructionReplyDelegate(this, &DHytorcToolCommand::receiveEventData));
    hcpComm->sendRequest(request);
}

void DHytorcToolCommand::resetEngine()
{
    if (hcpComm)
        hcpComm->reset();
}

void DHytorcToolCommand::finishCommand()
{
    bool ok = true;
    finishTheCommand(ok);
}

// A header scheduled before the end must not reach the tool after it.
void DHytorcToolCommand::forwardWrite(const QByteArray& packet)
{
    if (ended)
        return;
    addInstruction(c_driver, QStringLiteral("write"), {{QStringLiteral("frame"), packet}}, c_instructionTimeout,
                   InstructionReplyDelegate());
}
