#include "d_cmd_set_ping_interval.h"

namespace {
const QString c_requestPingInterval = QStringLiteral("SET PING INTERVAL\r\n%1");
constexpr int c_defaultIntervalMs = 150;
} // namespace

DCmdSetPingInterval::DCmdSetPingInterval(const QVariantMap& arguments, QObject* parent)
    : DHytorcSettingCommand(QStringLiteral("setPingInterval"), arguments, parent)
{
    setDescription(QStringLiteral("Set HYTORC tool PING interval (HCP-e)"));
    declareAParameter(QStringLiteral("interval"), QStringLiteral("int"), QStringLiteral("Ping interval in ms"),
                      c_defaultIntervalMs);
}

DAbstractCommand* DCmdSetPingInterval::createPrototype(QObject* plugin)
{
    return new DCmdSetPingInterval(QVariantMap(), plugin);
}

// No value, zero or a negative value: the tool's usual interval.
bool DCmdSetPingInterval::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !hcpComm)
        return false;
    int interval = getParameterValue(QStringLiteral("interval"), QVariant()).toInt();
    if (interval < 1)
        interval = c_defaultIntervalMs;
    startTransaction(QVariantMap(), c_requestPingInterval.arg(interval));
    return true;
}

QSharedPointer<ICommand> DCmdSetPingInterval::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdSetPingInterval(arguments, parent()));
}
