#ifndef I_INSTRUCTION_TARGET_H
#define I_INSTRUCTION_TARGET_H

#include <QString>
#include <QVariantMap>
#include <QtPlugin>

// Where a target plug-in (the serial driver) sends what its instructions produce.
class IInstructionReplySink
{
public:
    virtual ~IInstructionReplySink() = default;
    // One reply or event of an open instruction.
    virtual void instructionReply(quint64 instructionId, const QVariantMap& reply) = 0;
    // The target closed the instruction on its own (one-shot answered, link lost).
    virtual void instructionEnded(quint64 instructionId) = 0;
};

// A plug-in that other plug-ins can send instructions to.
class IInstructionTarget
{
public:
    enum EnOpening {
        CeOpRefused = 0,  // unknown instruction or unusable parameters: *refusal says why
        CeOpOneShot,      // answers once, then ends itself
        CeOpStream,       // stays open until closed, replying on each event
    };

    virtual ~IInstructionTarget() = default;

    // Replies may be given at once, from inside this call: the router queues them.
    virtual EnOpening openInstruction(quint64 instructionId, const QString& instruction,
                                      const QVariantMap& parameters, IInstructionReplySink* sink,
                                      QString* refusal) = 0;
    virtual void closeInstruction(quint64 instructionId) = 0;
};

#define IInstructionTarget_iid "fr.vexo.rd.box.IInstructionTarget"
Q_DECLARE_INTERFACE(IInstructionTarget, IInstructionTarget_iid)

#endif // I_INSTRUCTION_TARGET_H
