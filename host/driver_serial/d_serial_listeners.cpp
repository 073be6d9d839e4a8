#include "d_serial_listeners.h"

#include "i_instruction_target.h"

void DSerialListeners::add(quint64 instructionId, const QString& validator, IInstructionReplySink* sink)
{
    m_listeners.insert(instructionId, {validator, sink});
}

bool DSerialListeners::remove(quint64 instructionId) { return m_listeners.remove(instructionId) > 0; }

void DSerialListeners::deliver(const QByteArray& chunk)
{
    const QVariantMap event{{QStringLiteral("frame"), chunk}, {QStringLiteral("number"), ++m_chunkNumber}};
    // By id, looked up each time: a sink may close listeners while it is being told.
    const auto ids = m_listeners.keys();
    for (quint64 id : ids) {
        const auto it = m_listeners.constFind(id);
        if (it != m_listeners.cend())
            it->sink->instructionReply(id, event);
    }
}

void DSerialListeners::endAll()
{
    const auto listeners = m_listeners;
    m_listeners.clear();
    for (auto it = listeners.cbegin(); it != listeners.cend(); ++it)
        it->sink->instructionEnded(it.key());
}

// Every tool command holds a listening instruction for exactly the length of its
// transaction, and "listen" is the passive listener of the tool's own events: any
// other open listener means a transaction is in flight.
bool DSerialListeners::transactionInFlight() const
{
    for (const DListener& listener : m_listeners) {
        if (listener.validator != QLatin1String("listen"))
            return true;
    }
    return false;
}
