#ifndef I_COMMAND_H
#define I_COMMAND_H

#include <QObject>
#include <QString>
#include <QVariantMap>

// Interface of every command a plug-in offers the host.
class ICommand
{
public:
    virtual ~ICommand() = default;

    virtual void linkWithItsOrder(QObject* order) = 0;
    virtual QString commandName() const = 0;
    virtual QString stopCommandName() const = 0;
    virtual quint64 getOrderId() const = 0;
    virtual quint64 getParameterOrderId() const = 0;
    virtual bool isRecurrent() const = 0;
    virtual bool isValid() const = 0;
    virtual QString description() const = 0;
    virtual QVariantMap fullDescription() const = 0;
    virtual QVariantMap commandArguments() const = 0;
    virtual bool commandExecute() = 0;
    virtual bool setReply(quint64 instructionId, const QVariantMap& reply) = 0;
    virtual void finishTheCommand(bool& ok) = 0;
    virtual void sigCommandFinished(bool ok) = 0;
};

#define ICommand_iid "fr.vexo.rd.box.ICommand"
Q_DECLARE_INTERFACE(ICommand, ICommand_iid)

#endif // I_COMMAND_H
