#include "d_cmd_check_serial_id.h"

DCmdCheckSerialId::DCmdCheckSerialId(const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(QStringLiteral("checkSerialId"), arguments, parent)
{
    setDescription(QStringLiteral("Check if serialId (MAC address) is provided and return it"));
    declareAResult(QStringLiteral("serialId"), QStringLiteral("strg"), QStringLiteral("The provided serial ID"),
                   QString());
    declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QStringLiteral("True if serialId is present"),
                   false);
}

DAbstractCommand* DCmdCheckSerialId::createPrototype(QObject* plugin)
{
    return new DCmdCheckSerialId(QVariantMap(), plugin);
}

// No format check and no quote removal: any non-blank text counts as given.
bool DCmdCheckSerialId::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    const QString serialId = getParameterValue(QStringLiteral("serialId"), QVariant()).toString().trimmed();
    commandUpdateResult(QStringLiteral("serialId"), serialId);
    commandUpdateResult(QStringLiteral("doneOk"), !serialId.isEmpty());
    bool ok = true;
    commandFinish(ok);
    return ok;
}

QSharedPointer<ICommand> DCmdCheckSerialId::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdCheckSerialId(arguments, parent()));
}
