#include "d_byte_pacer.h"

#include <limits>

namespace {

const int c_tickMs = 1;
// A late tick may release this much line time at once, as a link with a small
// buffer would; beyond that the time is lost rather than sent as a burst.
const double c_maxCreditNs = 8e6;
const int c_bitsPerByte = 10;

}  // namespace

DBytePacer::DBytePacer(int baud, Sink sink, QObject* parent)
    : QObject(parent), m_bytesPerNs(baud / double(c_bitsPerByte) / 1e9), m_sink(std::move(sink))
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(c_tickMs);
    connect(&m_timer, &QTimer::timeout, this, &DBytePacer::onTick);
    m_clock.start();
}

void DBytePacer::enqueue(const QByteArray& bytes, int pauseAfterMs)
{
    enqueueChunk({bytes, pauseAfterMs, false});
}

void DBytePacer::enqueueBurst(const QByteArray& bytes, int pauseMs)
{
    if (!m_chunks.isEmpty())
        m_chunks.last().pauseAfterMs = qMax(m_chunks.last().pauseAfterMs, pauseMs);
    else
        m_pauseUntilNs = qMax(m_pauseUntilNs, m_clock.nsecsElapsed() + qint64(pauseMs) * 1000000);
    enqueueChunk({bytes, pauseMs, true});
}

void DBytePacer::enqueueChunk(const Chunk& chunk)
{
    const QByteArray& bytes = chunk.bytes;
    if (bytes.isEmpty())
        return;
    if (m_chunks.isEmpty() && m_pauseUntilNs == 0)
        restartCredit(m_clock.nsecsElapsed());
    m_chunks.enqueue(chunk);
    m_backlog += bytes.size();
    m_enqueuedTotal += bytes.size();
    onTick();
    if (!m_chunks.isEmpty() && !m_timer.isActive())
        m_timer.start();
}

void DBytePacer::clear()
{
    m_chunks.clear();
    m_backlog = 0;
    m_pauseUntilNs = 0;
    m_timer.stop();
}

void DBytePacer::onTick()
{
    const qint64 now = m_clock.nsecsElapsed();
    if (now < m_pauseUntilNs)
        return;
    if (m_pauseUntilNs != 0) {
        m_pauseUntilNs = 0;
        restartCredit(now);
    }
    qint64 allowance = takeAllowance();
    while (allowance > 0 && !m_chunks.isEmpty() && writeFront(&allowance)) {
    }
    if (m_chunks.isEmpty())
        m_timer.stop();
}

qint64 DBytePacer::takeAllowance()
{
    if (m_bytesPerNs == 0)
        return std::numeric_limits<qint64>::max();
    const qint64 now = m_clock.nsecsElapsed();
    m_credit = qMin(m_credit + (now - m_creditTakenNs) * m_bytesPerNs, c_maxCreditNs * m_bytesPerNs + 1);
    m_creditTakenNs = now;
    return qint64(m_credit);
}

void DBytePacer::restartCredit(qint64 now)
{
    // The first byte after a silence leaves at once, as on a UART with an empty shift register.
    m_credit = 1;
    m_creditTakenNs = now;
}

bool DBytePacer::writeFront(qint64* allowance)
{
    Chunk& front = m_chunks.head();
    if (front.whole && *allowance < front.bytes.size())
        return false;
    const qint64 accepted = m_sink(front.bytes.left(int(qMin<qint64>(*allowance, front.bytes.size()))));
    if (accepted < 0) {
        clear();
        return false;
    }
    front.bytes.remove(0, int(accepted));
    m_backlog -= accepted;
    *allowance -= accepted;
    if (m_bytesPerNs != 0)
        m_credit -= accepted;
    if (!front.bytes.isEmpty())
        return false;
    const int pauseMs = m_chunks.dequeue().pauseAfterMs;
    if (pauseMs > 0) {
        m_pauseUntilNs = m_clock.nsecsElapsed() + qint64(pauseMs) * 1000000;
        return false;
    }
    return *allowance > 0;
}
