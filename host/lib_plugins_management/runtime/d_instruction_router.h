#ifndef D_INSTRUCTION_ROUTER_H
#define D_INSTRUCTION_ROUTER_H

#include "i_instruction_router.h"
#include "i_instruction_target.h"

#include <QHash>
#include <QObject>

// Routes instructions from commands to the plug-ins that play their targets
// ("driver", ...), and the targets' replies back to the commands.
// - Replies are queued: each handler call happens on a later turn of the router's
//   event loop, in the order the target gave them, never inside openInstruction.
// - timeout (ms, > 0): how long a one-shot instruction may wait for its reply before
//   its handler gets a failure reply and the instruction is closed on the target.
// - Streams stay open until closeInstruction or the target ends them: no timeout.
class DInstructionRouter : public QObject, public IInstructionRouter, public IInstructionReplySink
{
    Q_OBJECT
public:
    explicit DInstructionRouter(QObject* parent = nullptr);

    // The target must stay alive until removeTarget.
    void addTarget(const QString& name, IInstructionTarget* target);
    // Closes the target's open instructions on it, then forgets it.
    void removeTarget(const QString& name);

    quint64 openInstruction(const QString& target, const QString& instruction, const QVariantMap& parameters,
                            int timeout, ReplyHandler onReply, QString* refusal) override;
    bool closeInstruction(quint64 instructionId) override;

    void instructionReply(quint64 instructionId, const QVariantMap& reply) override;
    void instructionEnded(quint64 instructionId) override;

    int openCount() const;

signals:
    void sigInstructionFailed(const QString& target, const QString& instruction, const QString& reason);

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    struct DOpenInstruction {
        QString target;
        QString instruction;
        IInstructionTarget* targetObject = nullptr;
        ReplyHandler onReply;
        IInstructionTarget::EnOpening opening = IInstructionTarget::CeOpStream;
        int timeout = 0;
        int timerId = 0;
        bool replied = false;
    };

    quint64 refuse(const QString& target, const QString& instruction, const QString& reason, QString* refusal);
    void startReplyTimer(quint64 instructionId);
    void forget(quint64 instructionId);
    void deliver(quint64 instructionId, const QVariantMap& reply);
    void end(quint64 instructionId);
    void onReplyTimeout(quint64 instructionId);

    QHash<QString, IInstructionTarget*> m_targets;
    QHash<quint64, DOpenInstruction> m_open;
    QHash<int, quint64> m_replyTimers;
    quint64 m_nextId = 1;
};

#endif // D_INSTRUCTION_ROUTER_H
