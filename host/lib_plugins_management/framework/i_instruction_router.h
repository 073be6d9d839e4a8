#ifndef I_INSTRUCTION_ROUTER_H
#define I_INSTRUCTION_ROUTER_H

#include <QString>
#include <QVariantMap>

#include <functional>

// How instructions leave a plug-in: the host runtime implements this and hands it
// to every plug-in instance it creates (DAbstractPlugin::setInstructionRouter).
class IInstructionRouter
{
public:
    // Called for each reply or event of an instruction, on the host's thread.
    using ReplyHandler = std::function<void(quint64 instructionId, const QVariantMap& reply)>;

    virtual ~IInstructionRouter() = default;

    // Opens `instruction` on the plug-in that plays `target`. Returns its id, never 0
    // on success; 0 with the reason in *refusal when no target takes it.
    // `timeout` (ms, <= 0 for none): how long a one-shot instruction may wait for its
    // reply; past it the handler gets a failure reply and the instruction is closed.
    // Streams (listening) are not bounded by it.
    virtual quint64 openInstruction(const QString& target, const QString& instruction,
                                    const QVariantMap& parameters, int timeout,
                                    ReplyHandler onReply, QString* refusal) = 0;

    // Closes an open instruction; false when it was not open.
    virtual bool closeInstruction(quint64 instructionId) = 0;
};

#endif // I_INSTRUCTION_ROUTER_H
