#ifndef D_TEST_COMMAND_H
#define D_TEST_COMMAND_H

#include "d_abstract_command.h"

#include <QPointer>

// A command whose behaviour the test picks.
class DTestCommand : public DAbstractCommand
{
    Q_OBJECT
public:
    enum EnBehaviour {
        CeFinishAtOnce,    // publishes its argument "value" and finishes inside commandExecute
        CeRefuse,          // refuses to execute
        CeRunUntilStopped, // ends only when the host stops it
        CeListenDriver,    // opens "listenEventsData" on "driver" and counts the replies
    };

    DTestCommand(const QString& name, const QString& stopName, EnBehaviour behaviour, QObject* parent,
                 const QVariantMap& arguments = {});

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;
    quint64 listenId() const;

    static QPointer<DTestCommand> s_lastExecuted;
    static int s_repliesReceived;

private:
    bool onDriverReply(quint64 instructionId, const QVariantMap& reply);

    EnBehaviour m_behaviour;
    quint64 m_listenId = 0;
};

#endif // D_TEST_COMMAND_H
