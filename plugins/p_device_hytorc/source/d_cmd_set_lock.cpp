#include "d_cmd_set_lock.h"

#include "p_device_hytorc.h"

namespace {
// Without the flag line the tool takes the request as "no flag set": unlocked.
const QString c_requestSetFlags = QStringLiteral("SET FLAGS OPEN_PROTOCOL\r\n");
const QString c_flagLock = QStringLiteral("OPEN_PROTOCOL_LOCK");
} // namespace

DCmdSetLock::DCmdSetLock(const QVariantMap& arguments, QObject* parent)
    : DHytorcSettingCommand(QStringLiteral("setLock"), arguments, parent)
{
    setDescription(QStringLiteral("Set HYTORC tool lock state"));
    declareAParameter(QStringLiteral("lock"), QStringLiteral("bool"), QStringLiteral("True to lock, false to unlock"),
                      QVariant());
}

DAbstractCommand* DCmdSetLock::createPrototype(QObject* plugin)
{
    return new DCmdSetLock(QVariantMap(), plugin);
}

bool DCmdSetLock::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !hcpComm)
        return false;
    plugin = qobject_cast<PDeviceHytorc*>(parent());
    if (!plugin)
        return false;
    lock = getParameterValue(QStringLiteral("lock"), QVariant()).toBool();
    startTransaction({{QStringLiteral("subscription"), true}, {QStringLiteral("validator"), QStringLiteral("lock")}},
                     c_requestSetFlags + (lock ? c_flagLock : QString()));
    return true;
}

QSharedPointer<ICommand> DCmdSetLock::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdSetLock(arguments, parent()));
}

// The backend and later commands read the tool's lock state from the plug-in.
void DCmdSetLock::onDataReady(QStringList payloadLines)
{
    if (plugin)
        plugin->setProperty(QStringLiteral("lock"), lock, true);
    DHytorcSettingCommand::onDataReady(payloadLines);
}
