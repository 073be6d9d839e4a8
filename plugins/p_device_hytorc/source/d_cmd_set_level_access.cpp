#include "d_cmd_set_level_access.h"

namespace {
const QString c_requestAccessLevel = QStringLiteral("SET ADMIN ACCESS_LEVEL\r\n");
const QString c_defaultLevel = QStringLiteral("L4");
} // namespace

DCmdSetLevelAccess::DCmdSetLevelAccess(const QVariantMap& arguments, QObject* parent)
    : DHytorcSettingCommand(QStringLiteral("setLevelAccess"), arguments, parent)
{
    setDescription(QStringLiteral("Set HYTORC tool access level (L1-L4)"));
    declareAParameter(QStringLiteral("level"), QStringLiteral("QString"),
                      QStringLiteral("Access level (L1, L2, L3, L4)"), QVariant());
}

DAbstractCommand* DCmdSetLevelAccess::createPrototype(QObject* plugin)
{
    return new DCmdSetLevelAccess(QVariantMap(), plugin);
}

// The level is not checked here: the tool refuses one it does not know.
bool DCmdSetLevelAccess::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !hcpComm)
        return false;
    QString level = getParameterValue(QStringLiteral("level"), QVariant()).toString().toUpper().trimmed();
    if (level.isEmpty())
        level = c_defaultLevel;
    startTransaction({{QStringLiteral("subscription"), true}, {QStringLiteral("validator"), QStringLiteral("level")}},
                     c_requestAccessLevel + level);
    return true;
}

QSharedPointer<ICommand> DCmdSetLevelAccess::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdSetLevelAccess(arguments, parent()));
}
