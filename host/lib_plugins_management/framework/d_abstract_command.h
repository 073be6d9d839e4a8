#ifndef D_ABSTRACT_COMMAND_H
#define D_ABSTRACT_COMMAND_H

#include "fastdelegate.h"
#include "i_command.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QVector>

class IInstructionRouter;

using InstructionReplyDelegate = fastdelegate::FastDelegate2<quint64, const QVariantMap&, bool>;

// Base of every command. A declared prototype describes the command to the host;
// each order runs on a fresh copy from newCommandInstance: commandExecute once,
// result updates, then one end (commandFinish emits sigCommandFinished).
//
// Host behaviour chosen here:
// - commandExecute refuses (returns false) an invalid command and a second execution.
// - addInstruction returns 0 when no target takes the instruction; the reply
//   callback, if any, then gets {"cmd_success": false, "error": reason} with id 0 on
//   the next turn of the event loop, so nobody waits for a reply that cannot come.
// - `timeout` bounds the wait for a one-shot instruction's reply (IInstructionRouter).
class DAbstractCommand : public QObject, public ICommand
{
    Q_OBJECT
    Q_INTERFACES(ICommand)
public:
    struct Declaration {
        QString name;
        QString type;
        QString description;
        QVariant defaultValue;
    };

    DAbstractCommand(const QString& name, const QVariantMap& arguments, QObject* parent);
    DAbstractCommand(const QString& name, const QString& stopName, const QVariantMap& arguments, QObject* parent);
    ~DAbstractCommand() override;

    void linkWithItsOrder(QObject* order) override;
    QString commandName() const override;
    QString stopCommandName() const override;
    quint64 getOrderId() const override;
    quint64 getParameterOrderId() const override;
    bool isRecurrent() const override;
    bool isValid() const override;
    QString description() const override;
    QVariantMap fullDescription() const override;
    QVariantMap commandArguments() const override;
    bool commandExecute() override;
    bool setReply(quint64 instructionId, const QVariantMap& reply) override;
    void finishTheCommand(bool& ok) override;

signals:
    void sigCommandFinished(bool ok);
    // Every result update, as it happens (the host streams these for recurrent commands).
    void sigResultsUpdated(const QVariantMap& changed);

public:
    virtual quint64 addInstruction(const QString& target, const QString& instruction,
                                   const QVariantMap& parameters, int timeout,
                                   InstructionReplyDelegate onReply);
    virtual QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) = 0;

    bool stopTheInstruction(quint64 instructionId);

    void setDescription(const QString& description);
    void declareAParameter(const QString& name, const QString& type, const QString& description,
                           const QVariant& defaultValue);
    void declareAResult(const QString& name, const QString& type, const QString& description,
                        const QVariant& defaultValue);
    QVector<Declaration> declaredParameters() const;
    QVector<Declaration> declaredResults() const;
    QVariant getParameterValue(const QString& name, const QVariant& defaultValue = QVariant()) const;

    void commandUpdateResult(const QString& name, const QVariant& value);
    void commandUpdateResults(const QVariantMap& results);
    QVariantMap commandResults() const;

    void commandFinish(bool& ok);
    bool isFinished() const;

protected:
    // Wraps a fresh command for the host: the shared pointer and the Qt parent may both end it.
    static QSharedPointer<ICommand> shareCommand(DAbstractCommand* command);

private:
    IInstructionRouter* instructionRouter() const;
    void refuseLater(InstructionReplyDelegate onReply, const QString& reason);

    QString m_name;
    QString m_stopName;
    QVariantMap m_arguments;
    QString m_description;
    QVector<Declaration> m_parameters;
    QVector<Declaration> m_results;
    QVariantMap m_resultValues;
    QPointer<QObject> m_order;
    QHash<quint64, InstructionReplyDelegate> m_replyDelegates;
    bool m_executed = false;
    bool m_finished = false;
};

#endif // D_ABSTRACT_COMMAND_H
