#ifndef D_CMD_SET_KEEP_ALIVE_FONCTION_H
#define D_CMD_SET_KEEP_ALIVE_FONCTION_H

#include "d_abstract_command.h"

// "setKeepAliveFonction": hands the serial driver a ready-made heartbeat (a battery
// request the tool answers with a NACK, the ACK to return, the period of silence) so
// that the driver keeps the radio link alive between transactions. No engine: the
// command exchanges no frame itself.
class DCmdSetKeepAliveFonction : public DAbstractCommand
{
    Q_OBJECT
public:
    DCmdSetKeepAliveFonction(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);
    // The instruction's arguments: "frame", "responseFrame", "ackFrame", "timeout".
    static QVariantMap heartbeat();

    bool commandExecute() override;
    void finishTheCommand(bool& ok) override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    bool receiveKeepAliveReply(quint64 instructionId, QVariantMap replyData);

private:
    quint64 keepAliveInstructionId = 0;
};

#endif // D_CMD_SET_KEEP_ALIVE_FONCTION_H
