// The host's instruction routing as the commands see it, recorded: every instruction
// sent, every one closed; the bytes of the "driver" are delivered by the test.
#ifndef D_RECORDING_ROUTER_H
#define D_RECORDING_ROUTER_H

#include "i_instruction_router.h"

#include <QHash>
#include <QList>
#include <QTimer>

class DRecordingRouter : public IInstructionRouter
{
public:
    struct Sent {
        QString instruction;
        QVariantMap parameters;
        int timeout;
    };

    quint64 openInstruction(const QString& target, const QString& instruction, const QVariantMap& parameters,
                            int timeout, ReplyHandler onReply, QString*) override
    {
        if (target != QLatin1String("driver"))
            return 0;
        sent.append({instruction, parameters, timeout});
        handlers.insert(++lastId, onReply);
        if (instruction == QLatin1String("setKeepAliveFonction")) {
            const quint64 id = lastId;
            QTimer::singleShot(0, [this, id] { handlers.value(id)(id, keepAliveReply); });
        }
        return lastId;
    }
    bool closeInstruction(quint64 id) override
    {
        closed << id;
        return handlers.remove(id) > 0;
    }
    QList<QByteArray> writes() const
    {
        QList<QByteArray> frames;
        for (const Sent& s : sent) {
            if (s.instruction == QLatin1String("write"))
                frames << s.parameters.value("frame").toByteArray();
        }
        return frames;
    }
    // What the driver delivers to the listening instruction (the first one opened).
    void deliver(const QByteArray& bytes)
    {
        if (handlers.contains(1))
            handlers.value(1)(1, {{"frame", bytes}, {"number", ++chunk}});
    }

    QList<Sent> sent;
    QList<quint64> closed;
    QHash<quint64, ReplyHandler> handlers;
    QVariantMap keepAliveReply;
    quint64 lastId = 0;
    int chunk = 0;
};

#endif // D_RECORDING_ROUTER_H
