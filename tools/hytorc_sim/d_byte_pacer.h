#ifndef D_BYTE_PACER_H
#define D_BYTE_PACER_H

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QQueue>
#include <QTimer>

#include <functional>

// Releases queued writes to the port at the line rate of a serial link, in order.
// Each write may be followed by a pause, so that the host reads it on its own.
class DBytePacer : public QObject
{
    Q_OBJECT

public:
    // Takes bytes, returns how many it accepted (-1: the port is gone).
    using Sink = std::function<qint64(const QByteArray&)>;

    DBytePacer(int baud, Sink sink, QObject* parent = nullptr);

    void enqueue(const QByteArray& bytes, int pauseAfterMs = 0);
    // A burst reaches the host as one read, as a radio packet would: it is set apart
    // by `pauseMs` of silence on both sides and written in one go once the line has had its time.
    void enqueueBurst(const QByteArray& bytes, int pauseMs);
    void clear();
    qint64 backlog() const { return m_backlog; }
    // Every byte ever queued, cleared ones included: a position in the output stream.
    qint64 enqueuedTotal() const { return m_enqueuedTotal; }

private slots:
    void onTick();

private:
    struct Chunk {
        QByteArray bytes;
        int pauseAfterMs;
        bool whole;
    };

    void enqueueChunk(const Chunk& chunk);
    qint64 takeAllowance();
    void restartCredit(qint64 now);
    // Writes up to `allowance` bytes of the front chunk; false when nothing more can go now.
    bool writeFront(qint64* allowance);

    const double m_bytesPerNs;  // 0: no pacing
    Sink m_sink;
    QQueue<Chunk> m_chunks;
    qint64 m_backlog = 0;
    qint64 m_enqueuedTotal = 0;
    QTimer m_timer;
    QElapsedTimer m_clock;
    double m_credit = 0;
    qint64 m_creditTakenNs = 0;
    qint64 m_pauseUntilNs = 0;
};

#endif // D_BYTE_PACER_H
