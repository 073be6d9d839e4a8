#include "d_test_command.h"

QPointer<DTestCommand> DTestCommand::s_lastExecuted;
int DTestCommand::s_repliesReceived = 0;

DTestCommand::DTestCommand(const QString& name, const QString& stopName, EnBehaviour behaviour, QObject* parent,
                           const QVariantMap& arguments)
    : DAbstractCommand(name, stopName, arguments, parent)
    , m_behaviour(behaviour)
{
}

bool DTestCommand::commandExecute()
{
    if (m_behaviour == CeRefuse || !DAbstractCommand::commandExecute())
        return false;
    s_lastExecuted = this;
    bool ok = true;
    if (m_behaviour == CeFinishAtOnce) {
        commandUpdateResult(QStringLiteral("value"), getParameterValue(QStringLiteral("value")));
        finishTheCommand(ok);
    } else if (m_behaviour == CeListenDriver) {
        m_listenId = addInstruction(QStringLiteral("driver"), QStringLiteral("listenEventsData"), {}, 2000,
                                    fastdelegate::MakeDelegate(this, &DTestCommand::onDriverReply));
    }
    return true;
}

QSharedPointer<ICommand> DTestCommand::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DTestCommand(commandName(), stopCommandName(), m_behaviour, parent(), arguments));
}

quint64 DTestCommand::listenId() const { return m_listenId; }

bool DTestCommand::onDriverReply(quint64, const QVariantMap&)
{
    ++s_repliesReceived;
    return true;
}
