#include "d_hytorc_setting_command.h"

DHytorcSettingCommand::DHytorcSettingCommand(const QString& name, const QVariantMap& arguments, QObject* parent)
    : DHytorcToolCommand(name, arguments, parent)
{
    declareSettingResults(this);
}

// The descriptions are the host's texts, trailing blank and all.
void DHytorcSettingCommand::declareSettingResults(DAbstractCommand* command)
{
    command->declareAResult(QStringLiteral("cmd_success"), QStringLiteral("bool"), QStringLiteral("obligatoire ?"),
                            false);
    command->declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QStringLiteral("Command success status "),
                            false);
}

void DHytorcSettingCommand::publishSettingResults(DAbstractCommand* command, bool ok)
{
    command->commandUpdateResult(QStringLiteral("cmd_success"), ok);
    command->commandUpdateResult(QStringLiteral("doneOk"), ok);
}

void DHytorcSettingCommand::onDataReady(QStringList payloadLines)
{
    Q_UNUSED(payloadLines)
    resetEngine();
    publishSettingResults(this, true);
    finishCommand();
}

void DHytorcSettingCommand::onError(QString errorMsg)
{
    Q_UNUSED(errorMsg)
    publishSettingResults(this, false);
    finishCommand();
}
