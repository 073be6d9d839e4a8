#include "d_cmd_get_tool_info.h"

#include "hytorc_hcp_constants.h"
#include "utilities.h"

#include <QtDebug>

DCmdGetToolInfo::DCmdGetToolInfo(const QVariantMap& arguments, QObject* parent)
    : DHytorcToolCommand(QStringLiteral("getToolInfo"), arguments, parent)
{
    setDescription(QStringLiteral("Get tool identification info (via HytorcHcpComm)"));
    declareAResult(QStringLiteral("cmd_success"), QStringLiteral("bool"), QStringLiteral("Success"), false);
    declareAResult(QStringLiteral("deviceInformation"), QStringLiteral("varM"), QStringLiteral("Tool info map"),
                   QVariant());
}

DAbstractCommand* DCmdGetToolInfo::createPrototype(QObject* plugin)
{
    return new DCmdGetToolInfo(QVariantMap(), plugin);
}

bool DCmdGetToolInfo::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !hcpComm)
        return false;
    startTransaction(QVariantMap(), QString::fromLatin1(c_cmdGetToolInfo));
    return true;
}

QSharedPointer<ICommand> DCmdGetToolInfo::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdGetToolInfo(arguments, parent()));
}

// The tool sends the fields in a fixed order: each line is the value of the key at its position.
void DCmdGetToolInfo::onDataReady(QStringList payloadLines)
{
    QVariantMap info;
    for (int i = 0; i < payloadLines.size() && i < c_toolInfoKeys.size(); ++i)
        info.insert(c_toolInfoKeys.at(i), payloadLines.at(i));
    qDebug().noquote() << convVariantMapToString(info);
    resetEngine();
    commandUpdateResult(QStringLiteral("deviceInformation"), info);
    commandUpdateResult(QStringLiteral("cmd_success"), true);
    finishCommand();
}
