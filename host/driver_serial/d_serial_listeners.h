#ifndef D_SERIAL_LISTENERS_H
#define D_SERIAL_LISTENERS_H

#include <QByteArray>
#include <QMap>
#include <QString>

class IInstructionReplySink;

// The open "listenEventsData" instructions. Every chunk read goes to each of them with
// the same chunk number, so that a listener can spot a chunk it was given twice.
class DSerialListeners
{
public:
    void add(quint64 instructionId, const QString& validator, IInstructionReplySink* sink);
    bool remove(quint64 instructionId);
    // Numbers the chunk (1, 2, ... over the driver's life) and hands it to every listener.
    void deliver(const QByteArray& chunk);
    // Ends every listener on its sink (the port went away).
    void endAll();
    bool transactionInFlight() const;

private:
    struct DListener {
        QString validator;
        IInstructionReplySink* sink = nullptr;
    };

    QMap<quint64, DListener> m_listeners;  // by id: delivered in the order they were opened
    int m_chunkNumber = 0;
};

#endif // D_SERIAL_LISTENERS_H
