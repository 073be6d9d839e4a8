#include "d_cmd_set_program.h"

#include "hytorc_torque.h"
#include "p_device_hytorc.h"

#include <QtDebug>

namespace {
const QString c_requestSetProfile = QStringLiteral("SET JOBS PROFILE\r\n");
} // namespace

DCmdSetProgram::DCmdSetProgram(const QVariantMap& arguments, QObject* parent)
    : DHytorcToolCommand(QStringLiteral("setProgram"), arguments, parent)
{
    setDescription(QStringLiteral("Activate a profile on HYTORC tool"));
    declareAParameter(QStringLiteral("progId"), QStringLiteral("int"), QStringLiteral("Program ID to select"),
                      QVariant());
    declareAResult(QStringLiteral("cmd_success"), QStringLiteral("bool"), QStringLiteral("Command success status"),
                   false);
    declareAResult(QStringLiteral("presetData"), QStringLiteral("varM"), QStringLiteral("the presets data"),
                   QVariant());
}

DAbstractCommand* DCmdSetProgram::createPrototype(QObject* plugin)
{
    return new DCmdSetProgram(QVariantMap(), plugin);
}

// An id outside the stored list fails at once: nothing is sent to the tool.
bool DCmdSetProgram::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !hcpComm)
        return false;
    plugin = qobject_cast<PDeviceHytorc*>(parent());
    if (!plugin)
        return false;
    progId = getParameterValue(QStringLiteral("progId"), QVariant()).toInt();
    const QVariantList programs =
        plugin->getProperty(QStringLiteral("programList"), static_cast<bool*>(nullptr)).toList();
    if (progId < 1 || progId > programs.size()) {
        commandUpdateResult(QStringLiteral("cmd_success"), false);
        finishCommand();
        return true;
    }
    const QVariantMap record = programs.at(progId - 1).toMap();
    commandUpdateResult(QStringLiteral("presetData"), presetData(record));
    startTransaction({{QStringLiteral("subscription"), true}, {QStringLiteral("validator"), QStringLiteral("prog")}},
                     c_requestSetProfile + profileText(record));
    return true;
}

QSharedPointer<ICommand> DCmdSetProgram::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdSetProgram(arguments, parent()));
}

// The tool's acknowledgement is enough; its lines are not read.
void DCmdSetProgram::onDataReady(QStringList payloadLines)
{
    Q_UNUSED(payloadLines)
    resetEngine();
    if (plugin)
        plugin->setProperty(QStringLiteral("currentProgId"), progId, true);
    commandUpdateResult(QStringLiteral("cmd_success"), true);
    finishCommand();
}

// The engine has spent its retries; "currentProgId" stays as it was.
void DCmdSetProgram::onError(QString errorMsg)
{
    qWarning() << "[HYTORC-SET_PROG] Failed after retries:" << errorMsg;
    commandUpdateResult(QStringLiteral("cmd_success"), false);
    finishCommand();
}

bool DCmdSetProgram::rcvWriteReply(quint64 instructionId, QVariantMap replyData)
{
    Q_UNUSED(instructionId)
    Q_UNUSED(replyData)
    return true;
}

// name,type,unit,torque,angle,release,fastener; the last three default to 0, 0 and RH.
QString DCmdSetProgram::profileText(const QVariantMap& record)
{
    return QStringLiteral("%1,%2,%3,%4,%5,%6,%7")
        .arg(record.value(QStringLiteral("name")).toString(), record.value(QStringLiteral("type")).toString(),
             record.value(QStringLiteral("unit")).toString(), record.value(QStringLiteral("torque")).toString(),
             record.value(QStringLiteral("angle"), QStringLiteral("0")).toString(),
             record.value(QStringLiteral("release"), QStringLiteral("0")).toString(),
             record.value(QStringLiteral("fastener"), QStringLiteral("RH")).toString());
}

// The torque goes through an integer conversion: a decimal torque gives 0. The host
// relies on this, so it stays (getPresetData converts the same text differently).
QVariantMap DCmdSetProgram::presetData(const QVariantMap& record)
{
    return {{QStringLiteral("targetAngle"), record.value(QStringLiteral("angle"), QStringLiteral("0"))},
            {QStringLiteral("torque"), torqueHundredths(record.value(QStringLiteral("torque")).toInt())}};
}
