#include "d_instruction_router.h"

#include <QTimerEvent>

namespace {
const QString c_success = QStringLiteral("cmd_success");
const QString c_error = QStringLiteral("error");
} // namespace

DInstructionRouter::DInstructionRouter(QObject* parent)
    : QObject(parent)
{
}

void DInstructionRouter::addTarget(const QString& name, IInstructionTarget* target)
{
    m_targets.insert(name, target);
}

void DInstructionRouter::removeTarget(const QString& name)
{
    IInstructionTarget* target = m_targets.take(name);
    if (!target)
        return;
    const auto ids = m_open.keys();
    for (quint64 id : ids) {
        if (m_open.value(id).target == name)
            closeInstruction(id);
    }
}

quint64 DInstructionRouter::openInstruction(const QString& target, const QString& instruction,
                                            const QVariantMap& parameters, int timeout, ReplyHandler onReply,
                                            QString* refusal)
{
    IInstructionTarget* targetObject = m_targets.value(target);
    if (!targetObject)
        return refuse(target, instruction, QStringLiteral("no target \"%1\"").arg(target), refusal);

    // Registered before the target sees it: the target may reply from inside the call.
    const quint64 id = m_nextId++;
    DOpenInstruction record;
    record.target = target;
    record.instruction = instruction;
    record.targetObject = targetObject;
    record.onReply = std::move(onReply);
    record.timeout = timeout;
    m_open.insert(id, record);

    QString reason;
    const auto opening = targetObject->openInstruction(id, instruction, parameters, this, &reason);
    if (opening == IInstructionTarget::CeOpRefused) {
        forget(id);
        if (reason.isEmpty())
            reason = QStringLiteral("\"%1\" refused \"%2\"").arg(target, instruction);
        return refuse(target, instruction, reason, refusal);
    }
    const auto it = m_open.find(id);
    if (it == m_open.end())
        return id;
    it->opening = opening;
    if (opening == IInstructionTarget::CeOpOneShot && timeout > 0 && !it->replied)
        startReplyTimer(id);
    return id;
}

bool DInstructionRouter::closeInstruction(quint64 instructionId)
{
    const auto it = m_open.constFind(instructionId);
    if (it == m_open.cend())
        return false;
    IInstructionTarget* targetObject = it->targetObject;
    forget(instructionId);
    targetObject->closeInstruction(instructionId);
    return true;
}

void DInstructionRouter::instructionReply(quint64 instructionId, const QVariantMap& reply)
{
    const auto it = m_open.find(instructionId);
    if (it == m_open.end())
        return;
    it->replied = true;
    if (it->timerId != 0) {
        killTimer(it->timerId);
        m_replyTimers.remove(it->timerId);
        it->timerId = 0;
    }
    QMetaObject::invokeMethod(this, [this, instructionId, reply] { deliver(instructionId, reply); },
                              Qt::QueuedConnection);
}

// Queued too, so that the replies given before the end still reach the handler.
void DInstructionRouter::instructionEnded(quint64 instructionId)
{
    if (m_open.contains(instructionId))
        QMetaObject::invokeMethod(this, [this, instructionId] { forget(instructionId); }, Qt::QueuedConnection);
}

int DInstructionRouter::openCount() const { return m_open.size(); }

void DInstructionRouter::timerEvent(QTimerEvent* event)
{
    const quint64 id = m_replyTimers.value(event->timerId());
    if (id == 0) {
        QObject::timerEvent(event);
        return;
    }
    onReplyTimeout(id);
}

quint64 DInstructionRouter::refuse(const QString& target, const QString& instruction, const QString& reason,
                                   QString* refusal)
{
    if (refusal)
        *refusal = reason;
    emit sigInstructionFailed(target, instruction, reason);
    return 0;
}

void DInstructionRouter::startReplyTimer(quint64 instructionId)
{
    DOpenInstruction& record = m_open[instructionId];
    record.timerId = startTimer(record.timeout);
    m_replyTimers.insert(record.timerId, instructionId);
}

void DInstructionRouter::forget(quint64 instructionId)
{
    const DOpenInstruction record = m_open.take(instructionId);
    if (record.timerId != 0) {
        killTimer(record.timerId);
        m_replyTimers.remove(record.timerId);
    }
}

void DInstructionRouter::deliver(quint64 instructionId, const QVariantMap& reply)
{
    const auto it = m_open.constFind(instructionId);
    if (it == m_open.cend())
        return;
    const DOpenInstruction record = it.value();
    if (record.opening == IInstructionTarget::CeOpOneShot)
        forget(instructionId);
    if (reply.contains(c_success) && !reply.value(c_success).toBool() && reply.contains(c_error))
        emit sigInstructionFailed(record.target, record.instruction, reply.value(c_error).toString());
    if (record.onReply)
        record.onReply(instructionId, reply);
}

void DInstructionRouter::onReplyTimeout(quint64 instructionId)
{
    const DOpenInstruction record = m_open.value(instructionId);
    const QString error = QStringLiteral("No reply from \"%1\" to \"%2\" within %3 ms")
                              .arg(record.target, record.instruction)
                              .arg(record.timeout);
    record.targetObject->closeInstruction(instructionId);
    deliver(instructionId, {{c_success, false},
                            {QStringLiteral("results"), QVariantMap{{QStringLiteral("doneOk"), false}}},
                            {c_error, error}});
}
